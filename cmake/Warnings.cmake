# Project-wide compiler settings: warnings everywhere, optional sanitizers.
add_compile_options(-Wall -Wextra -Wpedantic)
if(TROVARA_WERROR)
  add_compile_options(-Werror)
endif()
if(TROVARA_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# trovara_test(NAME SOURCES... LIBS ...): one GoogleTest executable per
# source folder of tests/, registered test by test with CTest.
function(trovara_test name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gmock trovara_test_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES ENVIRONMENT "QT_QPA_PLATFORM=offscreen;TZ=UTC")
endfunction()
