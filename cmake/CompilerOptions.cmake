# Warnings and sanitizers, applied to every target of the project through vk_target_options().
add_library(vk_options INTERFACE)
target_compile_options(vk_options INTERFACE -Wall -Wextra -Wpedantic)
if(VK_WARNINGS_AS_ERRORS)
    target_compile_options(vk_options INTERFACE -Werror)
endif()

if(VK_SANITIZER STREQUAL "asan")
    set(_vk_san -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
elseif(VK_SANITIZER STREQUAL "tsan")
    set(_vk_san -fsanitize=thread -fno-omit-frame-pointer)
elseif(VK_SANITIZER)
    message(FATAL_ERROR "Unknown VK_SANITIZER '${VK_SANITIZER}' (use asan or tsan)")
endif()
if(VK_BUILD_FUZZERS)
    # Coverage instrumentation for everything, so that the fuzzers see into the library; the
    # fuzz targets themselves link the fuzzer's main.
    list(APPEND _vk_san -fsanitize=fuzzer-no-link)
endif()
if(_vk_san)
    add_compile_options(${_vk_san})
    add_link_options(${_vk_san})
endif()

function(vk_target_options target)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:vk_options>)
endfunction()
