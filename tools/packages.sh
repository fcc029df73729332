# Debian packages that the scripts need, and a function to install them. Source this file from bash.

# Packages for building the product and its pages. Only libcurl's headers are needed: the library is loaded at run
# time, when an account service is first used. Node, npm and esbuild make the pages.
build_packages=(g++ cmake ninja-build libcurl4-openssl-dev esbuild nodejs npm)
# Additional packages for `./test --quick`. npm installs the tools of package.json. unzip,
# libarchive-tools and python3 open the service's archives. openssl makes certificates for the test account
# service. bsdutils provides `script`, which gives a program a terminal.
quick_test_packages=(git procps clang libclang-rt-14-dev clang-format clang-tidy googletest libbenchmark-dev
  chromium unzip libarchive-tools python3 mount openssl util-linux bsdutils)
# Additional packages for the benchmarks: valgrind counts instructions, the others store files as the download does.
benchmark_packages=(valgrind libbenchmark-dev libarchive-tools zip)
# Packages for tools/screenshots: Chinese letters, and smaller pictures.
screenshot_packages=(fonts-wqy-microhei pngquant)
# Packages for building and running the Windows program. PulseAudio provides audio endpoints to Wine.
windows_test_packages=(g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 pulseaudio pulseaudio-utils)

# Accepts any node and npm on the PATH: Node in particular often comes from elsewhere.
is_installed() {
  case "$1" in
    nodejs) command -v node >/dev/null ;;
    npm) command -v npm >/dev/null ;;
    *) [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ] ;;
  esac
}

# install_packages NAME ...: installs missing packages. Without root it lists them and fails.
install_packages() {
  local package missing=()
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  if [ "$(id -u)" -ne 0 ]; then
    printf 'These Debian packages are missing. Install them as root, then start again:\n  apt-get install %s\n' \
      "${missing[*]}" >&2
    return 1
  fi
  printf 'Installing %s\n' "${missing[*]}" >&2
  apt-get update -qq >&2 &&
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}
