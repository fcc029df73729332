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
  # --gc-sections leaves out the parts of the C++ library that nothing uses.
  target_link_options(velmora_options INTERFACE -static-libgcc -static-libstdc++ -Wl,--as-needed -Wl,--gc-sections)
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

# velmora_program_resource(TARGET DESCRIPTION): manifest, icon and version of a program for users. On Windows only;
# elsewhere it does nothing.
set(version_header ${PROJECT_SOURCE_DIR}/src/base/version.h)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${version_header})
file(STRINGS ${version_header} version_line REGEX "application_version")
if(NOT version_line MATCHES "\"([0-9]+)\\.([0-9]+)\\.([0-9]+)\"")
  message(FATAL_ERROR "${version_header} holds no version of three numbers")
endif()
set(velmora_version ${CMAKE_MATCH_1}.${CMAKE_MATCH_2}.${CMAKE_MATCH_3})
set(velmora_version_numbers ${CMAKE_MATCH_1},${CMAKE_MATCH_2},${CMAKE_MATCH_3})
function(velmora_program_resource target description)
  if(WIN32)
    set(resource ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
    configure_file(${PROJECT_SOURCE_DIR}/src/platform/windows/program.rc.in ${resource} @ONLY)
    target_sources(${target} PRIVATE ${resource})
    set_source_files_properties(${resource} PROPERTIES OBJECT_DEPENDS
      "${PROJECT_SOURCE_DIR}/src/platform/windows/program.manifest;${PROJECT_SOURCE_DIR}/release/velmora.ico")
  endif()
endfunction()
