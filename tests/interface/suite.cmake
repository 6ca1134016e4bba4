# Additions to the interface suite (included from tests/CMakeLists.txt with exe, suite, dir set).

# The suite uses the library as a host does: through the shared library and its exported
# header, not through the static archive the other suites link.
set_property(TARGET ${exe} PROPERTY LINK_LIBRARIES zqCoreAudio GTest::gtest GTest::gtest_main)
# The symbol-table test reads the built libraries with nm.
target_compile_definitions(${exe} PRIVATE
  ZQ_CORE_LIBRARY_FILE="$<TARGET_FILE:zqCoreAudio>"
  ZQ_PLATFORM_LIBRARY_FILE="$<TARGET_FILE:zqplatform>"
  ZQ_NM="${CMAKE_NM}")
add_dependencies(${exe} zqCoreAudio zqplatform)

# The package: install into a temporary prefix, then build and run a small consumer with
# find_package and with pkg-config (tests/consumer). Under a sanitizer the consumer is built
# with the same sanitizer, since the installed libraries are instrumented.
if(ZQ_SANITIZE STREQUAL "address")
  set(zq_consumer_flags "-fsanitize=address,undefined -fno-sanitize-recover=undefined")
elseif(ZQ_SANITIZE STREQUAL "thread")
  set(zq_consumer_flags "-fsanitize=thread")
else()
  set(zq_consumer_flags "")
endif()
add_test(NAME package.InstallAndConsume
  COMMAND bash ${CMAKE_SOURCE_DIR}/tests/consumer/run-package-test
    ${CMAKE_BINARY_DIR} ${CMAKE_COMMAND} ${CMAKE_CXX_COMPILER} "${zq_consumer_flags}")
set_tests_properties(package.InstallAndConsume PROPERTIES LABELS "package;${suite}" TIMEOUT 600 SKIP_RETURN_CODE 77)
