# Compile options of our own code. They do not apply to third-party code (the test libraries).
add_library(velmora_options INTERFACE)
target_compile_features(velmora_options INTERFACE cxx_std_20)
target_compile_options(velmora_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
target_include_directories(velmora_options INTERFACE ${PROJECT_SOURCE_DIR}/src)
if(WIN32)
  target_compile_definitions(velmora_options INTERFACE
    UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00 NTDDI_VERSION=0x0A000006)
  # One executable that imports only Windows' own DLLs, with ASLR and no executable data.
  target_link_options(velmora_options INTERFACE
    -static -static-libgcc -static-libstdc++ -Wl,--dynamicbase -Wl,--high-entropy-va -Wl,--nxcompat)
elseif(NOT VELMORA_SANITIZE)
  # The C++ library reads floats with two functions of libm. Linked from its static form, they spare the loader a
  # whole library, a tenth of the start.
  target_link_options(velmora_options INTERFACE -static-libgcc -static-libstdc++ -Wl,--as-needed
    -Wl,--undefined=fegetround,--undefined=fesetround)
  target_link_libraries(velmora_options INTERFACE -l:libm.a)
endif()

set(VELMORA_SANITIZE "" CACHE STRING "Sanitizers for everything that is built, as -fsanitize= takes them")
if(VELMORA_SANITIZE)
  add_compile_options(-fsanitize=${VELMORA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${VELMORA_SANITIZE})
endif()

# velmora_library(NAME [sources ...] LINKS [libraries ...]): one directory of src/. The LINKS lists define the
# architecture; tools/check_source.mjs checks the includes against them.
function(velmora_library name)
  cmake_parse_arguments(arg "" "" "LINKS" ${ARGN})
  if(arg_UNPARSED_ARGUMENTS)
    add_library(${name} STATIC ${arg_UNPARSED_ARGUMENTS})
    target_link_libraries(${name} PUBLIC velmora_options ${arg_LINKS})
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE velmora_options ${arg_LINKS})
  endif()
endfunction()
