# How everything here is compiled. gridloom_settings(TARGET) applies it to one target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# An installed program or library finds the libraries by its own place: a prefix may be moved.
file(RELATIVE_PATH gridloom_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/${gridloom_bin_to_lib}")

function(gridloom_settings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wundef
        $<$<BOOL:${GRIDLOOM_WERROR}>:-Werror>
        # The bytes of an index don't depend on the processor: no fused multiply-add.
        -ffp-contract=off)
    if(CMAKE_UNITY_BUILD)  # GCC takes sources that are merged into one for headers
        target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
    endif()
    if(GRIDLOOM_ARCH)
        target_compile_options(${target} PRIVATE -march=${GRIDLOOM_ARCH})
    endif()
    if(GRIDLOOM_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${GRIDLOOM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${GRIDLOOM_SANITIZE})
    endif()
endfunction()

# The same for one of the two shared libraries.
function(gridloom_library_settings target)
    gridloom_settings(${target})
    # Nothing in a library leans on a throw.
    target_compile_options(${target} PRIVATE -fno-exceptions)
    # Boxes are worked out in inline header code: users need the same arithmetic.
    target_compile_options(${target} INTERFACE -ffp-contract=off)
    target_compile_features(${target} INTERFACE cxx_std_14)
    if(NOT GRIDLOOM_SANITIZE)
        target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
endfunction()
