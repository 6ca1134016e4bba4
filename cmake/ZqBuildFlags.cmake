# Warnings for our own targets, and the sanitizer flags of the whole build.
function(zq_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
    -Wcast-align -Woverloaded-virtual -Wformat=2 -Wimplicit-fallthrough -Werror=return-type)
endfunction()

if(ZQ_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(ZQ_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT ZQ_SANITIZE STREQUAL "")
  message(FATAL_ERROR "ZQ_SANITIZE must be empty, 'address' or 'thread'")
endif()
