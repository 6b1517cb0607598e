# Hardening of the process where it ships: in Release and MinSizeRel, without sanitizers. What the target's compiler or C
# library lacks is left out and said; scripts/check-linkage shows what a program has.
option(FXSMEDIA_HARDEN "Harden the process: PIE, RELRO, stack protector, stack-clash protection, _FORTIFY_SOURCE" ON)

set(FXS_HARDEN_COMPILE "")
set(FXS_HARDEN_LINK "")
if(FXSMEDIA_HARDEN AND NOT FXSMEDIA_SANITIZE)
    include(CheckCXXSourceCompiles)

    # fxs_keep_supported(<list> <option>...): appends the options with which a function that the stack protector guards
    # can be compiled and linked; one that a compiler only warns about is not supported.
    function(fxs_keep_supported list)
        foreach(option ${ARGN})
            string(MAKE_C_IDENTIFIER "FXS_HAS${option}" has)
            set(CMAKE_REQUIRED_FLAGS "-Werror ${option}")
            set(CMAKE_REQUIRED_QUIET ON)
            check_cxx_source_compiles("
                extern \"C\" int read(int, char*, unsigned long);
                int main() { char block[16]; return read(0, block, sizeof block) + block[0]; }" ${has})
            if(${has})
                list(APPEND ${list} ${option})
            else()
                message(STATUS "Hardening: left out, not supported here: ${option}")
            endif()
        endforeach()
        set(${list} ${${list}} PARENT_SCOPE)
    endfunction()

    fxs_keep_supported(FXS_HARDEN_COMPILE -fstack-protector-strong -fstack-clash-protection)
    # The linker is told as well: with some C libraries the compiler then adds what the stack protector calls.
    list(APPEND FXS_HARDEN_LINK ${FXS_HARDEN_COMPILE})
    # Level 3 finds nothing more to check in this code, and needs GCC 12 and glibc 2.35 to be more than a warning.
    if(NOT CMAKE_CXX_FLAGS MATCHES _FORTIFY_SOURCE)
        list(APPEND FXS_HARDEN_COMPILE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    endif()
    # Written down in the program, in a section that strip takes out, for scripts/check-linkage.
    fxs_keep_supported(FXS_HARDEN_COMPILE -frecord-gcc-switches)
    fxs_keep_supported(FXS_HARDEN_LINK -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    if(CMAKE_EXE_LINKER_FLAGS MATCHES "-static")
        message(STATUS "Hardening: a static program, not position-independent")
    else()
        list(APPEND FXS_HARDEN_COMPILE -fPIE)
        list(APPEND FXS_HARDEN_LINK -pie)
    endif()
endif()

# fxs_harden(<target>): a library of the process, or the process itself.
function(fxs_harden target)
    target_compile_options(${target} PRIVATE "$<$<CONFIG:Release,MinSizeRel>:${FXS_HARDEN_COMPILE}>")
    get_target_property(type ${target} TYPE)
    if(type STREQUAL EXECUTABLE)
        target_link_options(${target} PRIVATE "$<$<CONFIG:Release,MinSizeRel>:${FXS_HARDEN_LINK}>")
    endif()
endfunction()
