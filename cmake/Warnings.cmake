# Project-wide compiler settings: warnings everywhere, optional sanitizers,
# compressed debug information.
add_compile_options(-Wall -Wextra -Wpedantic)
if(TROVARA_WERROR)
  add_compile_options(-Werror)
endif()
if(TROVARA_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# Every test executable links the static libraries whole, so their debug
# information is repeated in each one: uncompressed, the plain and the
# sanitized build of scripts/test take some 7 GB. Compressed sections are read
# as they are by gdb, addr2line, perf and the sanitizers' symbolizer.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
check_cxx_compiler_flag(-gz TROVARA_HAVE_GZ)
check_linker_flag(CXX -gz TROVARA_HAVE_LINK_GZ)
if(TROVARA_HAVE_GZ AND TROVARA_HAVE_LINK_GZ)
  add_compile_options(-gz)
  add_link_options(-gz)
endif()

# trovara_test(NAME SOURCES... LIBS ...): one GoogleTest executable per
# source folder of tests/, registered test by test with CTest.
function(trovara_test name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock trovara_test_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen;TZ=UTC")
endfunction()
