# The warnings, hardening and sanitizers that every target of this project is built with.
add_library(tav_warnings INTERFACE)
target_compile_options(tav_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
    -Wcast-qual -Wcast-align -Wformat=2 -Wundef -Wnon-virtual-dtor -Woverloaded-virtual -fno-common)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(tav_warnings INTERFACE -Wduplicated-cond -Wlogical-op)
    if(TAV_SANITIZE)
        # Instrumented code hides the values that this warning reasons about.
        target_compile_options(tav_warnings INTERFACE -Wno-maybe-uninitialized)
    endif()
endif()
if(TAV_SANITIZE)
    target_compile_options(tav_warnings INTERFACE -fsanitize=${TAV_SANITIZE}
                                                  -fno-omit-frame-pointer
                                                  -fno-sanitize-recover=all)
    target_link_options(tav_warnings INTERFACE -fsanitize=${TAV_SANITIZE})
else()
    target_compile_options(tav_warnings INTERFACE -fstack-protector-strong)
    target_compile_definitions(tav_warnings INTERFACE
                               $<$<CONFIG:Release,RelWithDebInfo>:_FORTIFY_SOURCE=2>)
    target_link_options(tav_warnings INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()
