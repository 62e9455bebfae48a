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

# zel_compile_for_library(TARGET): how the code of the two shared libraries is compiled.
function(zel_compile_for_library target)
  zel_configure_target(${target})
  # A section for each function, so that the linker leaves out those that are not called: boards are small.
  target_compile_options(${target} PRIVATE -ffunction-sections -fdata-sections)
  if(ZEL_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
  endif()
endfunction()

# zel_add_parts(NAME OBJECT|STATIC): code that several targets hold, each on its own; of STATIC only what they use.
function(zel_add_parts name kind)
  add_library(${name} ${kind})
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  zel_compile_for_library(${name})
  if(ZEL_COVERAGE)
    target_link_options(${name} INTERFACE --coverage)
  endif()
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
  zel_compile_for_library(${name})
  # A library uses its own functions and tables, also where an application has a class of the same name: the dynamic
  # linker looks up only the listed variables by name, which a program holds itself.
  # It stays loaded to the end of the process (-z nodelete), for which it has exit handlers.
  set(map "${PROJECT_SOURCE_DIR}/packaging/${name}.map")
  set(variables "${PROJECT_SOURCE_DIR}/packaging/variables.list")
  target_link_options(${name} PRIVATE LINKER:--version-script=${map} LINKER:--dynamic-list=${variables}
                      LINKER:--as-needed LINKER:--gc-sections LINKER:-z,nodelete)
  set_property(TARGET ${name} APPEND PROPERTY LINK_DEPENDS ${map} ${variables})
  if(ZEL_COVERAGE)
    target_link_options(${name} PRIVATE --coverage)
  endif()
endfunction()

# zel_add_room(LIBRARY [SOURCES file...] [HEADERS file...]): what the current folder adds to a library; the headers are
# public.
function(zel_add_room library)
  cmake_parse_arguments(PARSE_ARGV 1 room "" "" "SOURCES;HEADERS")
  target_sources(
    ${library}
    PRIVATE ${room_SOURCES}
    PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}" FILES ${room_HEADERS})
endfunction()
