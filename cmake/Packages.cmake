# Debian packages, one a component; scripts/package.sh makes and tries them.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_CONTACT "The Veltra developers <developers@veltra.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development)
if(BUILD_TOOL)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/veltra)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON) # of exactly this version
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_TOOLS_DEPENDS library)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libveltra${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "web access for TV applications - library
HTTP and HTTPS requests, file downloads with progress and cancellation,
and the device-identified query for app-binary servers, on one engine with
one worker thread for the whole process.")
if(VELTRA_PLATFORM STREQUAL desktop)
    # Of the options that the wrapper sets, the library's symbols say nothing.
    set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libcurl4 (>= ${curl_version})")
endif()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# Debian's way to refresh the linker's cache; CPack adds scripts that do the same on its own.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libveltra-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# pkg-config asks for the modules that ours requires privately, too.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libglib2.0-dev, libpugixml-dev")
if(VELTRA_PLATFORM STREQUAL desktop)
    string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ", libcurl4-openssl-dev | libcurl-dev")
endif()
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "web access for TV applications - development files
The headers, and what CMake and pkg-config need to find the library.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME veltra-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION web)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "web access for TV applications - command-line client
Makes requests, downloads files, asks the query service for app-binary
servers and reads their documents.")
include(CPack)
