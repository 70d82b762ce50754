# Makes the linker's export map of a library from lists in veltra/symbols/: it exports the listed symbols and nothing
# else, not the engine's private operations, not what the standard library's templates leave behind. tests/symbols.sh
# compares the library with the same lists, parameters included. In a device build the platform's part matches nothing.
function(add_export_map target binary_version) # LISTS...
    set(patterns "")
    foreach(list IN LISTS ARGN)
        set(file ${PROJECT_SOURCE_DIR}/veltra/symbols/${list})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
        file(STRINGS ${file} symbols REGEX "::| for ")
        foreach(symbol IN LISTS symbols)
            if(symbol MATCHES "^([^(]*)\\(")
                # A pattern may not hold these; after the name comes "(" or a tag of the ABI's.
                string(REGEX REPLACE "[~<>=]" "?" name "${CMAKE_MATCH_1}")
                string(APPEND patterns "      ${name}[!a-zA-Z0-9_]*;\n")
            else()
                string(APPEND patterns "      \"${symbol}\";\n")
            endif()
        endforeach()
    endforeach()
    set(map ${CMAKE_CURRENT_BINARY_DIR}/${target}.map)
    set(text "VELTRA_${binary_version} {\n  global:\n    extern \"C++\" {\n${patterns}    };\n  local:\n    *;\n};\n")
    file(CONFIGURE OUTPUT ${map} CONTENT "${text}" @ONLY) # touches it only when it changes
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
    target_link_options(${target} PRIVATE LINKER:--version-script=${map})
endfunction()
