# How the targets of this tree are made: one place for the language, the warnings and the include path.

# zel_configure_target(TARGET): the rules that hold for every target, programs and tests included.
function(zel_configure_target target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(
    ${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Werror=format-security
                      $<$<BOOL:${ZEL_WARNINGS_AS_ERRORS}>:-Werror>)
  # Without it a 32-bit program cannot list a folder whose file system numbers its files with 64 bits.
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}")
endfunction()

# zel_add_library(NAME): one of the two shared libraries; its rooms add the sources.
#
# SOVERSION is the version of the binary interface, apart from the project's version: it goes up when a program that
# was built against an earlier release may no longer run (a public class changes its layout, its virtual operations or
# the operations that it exports), and only then.
function(zel_add_library name)
  add_library(${name} SHARED)
  add_library(zelSysMgrApi::${name} ALIAS ${name})
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1)
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}")
  # What nobody calls is left out, each function on its own: boards are small.
  target_compile_options(${name} PRIVATE -ffunction-sections -fdata-sections)
  target_link_options(
    ${name} PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/packaging/${name}.map"
                    LINKER:--as-needed LINKER:--gc-sections)
  set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS "${PROJECT_SOURCE_DIR}/packaging/${name}.map")
  zel_configure_target(${name})
  if(ZEL_COVERAGE)
    target_compile_options(${name} PRIVATE --coverage -fprofile-update=atomic)
    target_link_options(${name} PRIVATE --coverage)
  endif()
endfunction()
