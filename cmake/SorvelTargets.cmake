# Every library and program of this project is declared through these functions, so that language level,
# warnings and sanitizers are the same everywhere and stay out of a user's own build.

include(GNUInstallDirs)

function(sorvel_options target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor>
    $<$<CXX_COMPILER_ID:Clang>:-Wdocumentation>
    $<$<BOOL:${SORVEL_WERROR}>:-Werror>
    # g++ 12 sees overlapping copies in every inlined std::string concatenation (its bug 105651).
    $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
  if(SORVEL_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${SORVEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1)
    target_link_options(${target} PUBLIC -fsanitize=${SORVEL_SANITIZE})
  endif()
endfunction()

# sorvel_library(payload SOURCES a.cpp b.cpp HEADERS a.hpp b.hpp)
# makes the target sorvel_payload, includable as "payload/a.hpp". HEADERS are the ones that get installed.
function(sorvel_library folder)
  cmake_parse_arguments(arg "" "" "SOURCES;HEADERS" ${ARGN})
  set(target sorvel_${folder})
  add_library(${target} ${arg_SOURCES} ${arg_HEADERS})
  add_library(sorvel::${folder} ALIAS ${target})
  sorvel_options(${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${folder} VERSION ${PROJECT_VERSION} SOVERSION 0)
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/sorvel>)
  set_property(GLOBAL APPEND PROPERTY SORVEL_LIBRARIES ${target})
  foreach(header ${arg_HEADERS})
    get_filename_component(inner ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sorvel/${folder}/${inner})
  endforeach()
endfunction()

# Objects whose names end at the edge of the library that they are linked into.
function(sorvel_hide target)
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  # Unique names could not be made local, where the static library's are.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
  if(SORVEL_SANITIZE MATCHES undefined)
    target_compile_options(${target} PRIVATE -fno-sanitize=vptr) # needs a runtime that programs in C are not linked with
  endif()
endfunction()

# sorvel_inner_objects(objects modem EXCEPT a.cpp) compiles the sources of sorvel_modem, as they are compiled there, once
# more, with hidden names, and appends the objects to the list. Under sanitizers, where a static library hides no names
# anyway, they are those of sorvel_modem: that saves their builds a fifth of the time.
function(sorvel_inner_objects list folder)
  cmake_parse_arguments(arg "" "" "EXCEPT" ${ARGN})
  if(SORVEL_SANITIZE)
    list(JOIN arg_EXCEPT "|" except)
    list(APPEND ${list} $<FILTER:$<TARGET_OBJECTS:sorvel_${folder}>,EXCLUDE,/\(none|${except}\)[.]o>)
    set(${list} ${${list}} PARENT_SCOPE)
    return()
  endif()
  set(target sorvel_${folder}_hidden)
  get_target_property(sources sorvel_${folder} SOURCES)
  list(FILTER sources INCLUDE REGEX "[.]cpp$")
  list(REMOVE_ITEM sources ${arg_EXCEPT} "")
  get_target_property(source_dir sorvel_${folder} SOURCE_DIR)
  list(TRANSFORM sources PREPEND ${source_dir}/)
  add_library(${target} OBJECT ${sources})
  sorvel_options(${target})
  sorvel_hide(${target})
  target_compile_options(${target} PRIVATE $<TARGET_PROPERTY:sorvel_${folder},COMPILE_OPTIONS>)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  list(APPEND ${list} $<TARGET_OBJECTS:${target}>)
  set(${list} ${${list}} PARENT_SCOPE)
endfunction()

# sorvel_program(name SOURCES a.cpp LIBRARIES sorvel_modem)
function(sorvel_program target)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${target} ${arg_SOURCES})
  sorvel_options(${target})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE ${arg_LIBRARIES})
endfunction()

# sorvel_tests(modem SOURCES a_test.cpp LIBRARIES sorvel_modem) makes sorvel_modem_tests and registers its tests;
# PROPERTIES are set on each of them. With IN_TURN, a list of name filters, those of one filter never run at the same time.
function(sorvel_tests folder)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES;PROPERTIES;IN_TURN" ${ARGN})
  set(target sorvel_${folder}_tests)
  sorvel_program(${target} SOURCES ${arg_SOURCES} LIBRARIES ${arg_LIBRARIES} GTest::gmock GTest::gtest_main)
  # Saves time; other builds see that every file includes what it uses. g++ 12 warns of the headers' code then.
  if(SORVEL_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    if(NOT TARGET sorvel_tests_headers)
      file(WRITE ${PROJECT_BINARY_DIR}/tests/headers.cpp "")
      sorvel_program(sorvel_tests_headers SOURCES ${PROJECT_BINARY_DIR}/tests/headers.cpp LIBRARIES GTest::gmock GTest::gtest_main)
      target_precompile_headers(sorvel_tests_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
    endif()
    target_precompile_headers(${target} REUSE_FROM sorvel_tests_headers)
  endif()
  set(properties DISCOVERY_MODE PRE_TEST TEST_PREFIX ${folder}. PROPERTIES TIMEOUT 300 ${arg_PROPERTIES})
  foreach(filter ${arg_IN_TURN})
    gtest_discover_tests(${target} TEST_FILTER ${filter} ${properties} RESOURCE_LOCK ${folder}:${filter})
  endforeach()
  if(NOT arg_IN_TURN)
    gtest_discover_tests(${target} ${properties})
  endif()
endfunction()
