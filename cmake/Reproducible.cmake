# The same sources give the same files, wherever they lie and whenever they are built. The only date in them is that of the
# last commit, or SOURCE_DATE_EPOCH where the caller sets it; sources without a history take the time of the configuration.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND git -C ${PROJECT_SOURCE_DIR} log -1 --format=%ct
        OUTPUT_VARIABLE commit_time OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
    if(failed)
        string(TIMESTAMP commit_time %s UTC)
    endif()
    set(ENV{SOURCE_DATE_EPOCH} ${commit_time})
endif()

# Debuggers find the sources of a debug build by their real paths. Of two that fit, compilers take the last.
add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.;-ffile-prefix-map=${PROJECT_BINARY_DIR}=build>")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
