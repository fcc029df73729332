# Debian packages that the scripts need, and their installation. To be sourced by bash.

# What the product is built with.
# The headers of libcurl; the library itself is loaded when an account service is first asked.
build_packages=(g++ cmake ninja-build libcurl4-openssl-dev)
# What `./test --quick` needs beside it. npm installs package.json's tools; unzip, libarchive-tools and python3 open the
# archives that the service makes; openssl makes the certificates of the test account service; bsdutils has
# `script`, which gives a program a terminal.
quick_test_packages=(git procps clang libclang-rt-14-dev clang-format clang-tidy googletest libbenchmark-dev nodejs npm
  chromium unzip libarchive-tools python3 mount openssl util-linux bsdutils)
# What the Windows program is built and run with. PulseAudio gives Wine its audio endpoints.
windows_test_packages=(g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 pulseaudio pulseaudio-utils)

# A tool that stands on the path counts, wherever it came from: Node in particular often comes from elsewhere.
is_installed() {
  case "$1" in
    nodejs) command -v node >/dev/null ;;
    npm) command -v npm >/dev/null ;;
    *) [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ] ;;
  esac
}

# install_packages NAME ...: installs those that are missing; without root it says which they are and fails.
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
