# Hardens everything that is built here, so that an overflow or a stray jump ends the process: stack protector, checked
# functions of the C library, relocations bound at start and read-only, position-independent programs, marked entry points,
# shadow stacks. scripts/hardened.sh checks a built file. Sanitizers have their own checks, which conflict with these.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

if(CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    set(HARDENED OFF)
else()
    set(HARDENED ON)
    check_pie_supported(LANGUAGES CXX)
    add_compile_options(-fstack-protector-strong
        "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>") # it takes an optimiser
    add_link_options(LINKER:-z,relro,-z,now)

    check_cxx_compiler_flag(-fcf-protection HAVE_CF_PROTECTION)
    if(HAVE_CF_PROTECTION)
        add_compile_options(-fcf-protection)
        # The C library's start files lack the mark in Debian, and the linker would drop it for all. They keep to shadow
        # stacks all the same; but their entry points are not marked, so that the other half (-z ibt) would be wrong.
        check_linker_flag(CXX LINKER:-z,shstk HAVE_SHADOW_STACK)
        if(HAVE_SHADOW_STACK)
            add_link_options(LINKER:-z,shstk)
        endif()
    endif()
endif()
