# The example in README.md is compiled with everything else, so that it stays true.
file(READ ${PROJECT_SOURCE_DIR}/README.md readme)
set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS README.md)
string(REGEX MATCH "```cpp\n([^`]*)```" match "${readme}")
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/readme_example.cpp CONTENT "${CMAKE_MATCH_1}" @ONLY)
add_executable(readme_example ${PROJECT_BINARY_DIR}/readme_example.cpp)
target_link_libraries(readme_example PRIVATE veltra::veltra veltra_warnings)
