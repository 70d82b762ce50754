# shellcheck shell=bash
# The dynamic symbols of a library by the names that veltra/symbols/ gives them; to be sourced.

# One a line, in nm's own order: names as one writes them, without versions.
# Of the sizes, which differ between processors, only the write functions' are seen.
readable_names() { # STDIN: what nm prints
    sed -E -e 's/^[0-9a-f ]*[A-Za-z] //' -e 's/@.*//' | c++filt | sed -E \
        -e 's/\[abi:cxx11\]//' -e 's/std::__cxx11::/std::/g' \
        -e 's/std::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' \
        -e 's/, std::less<std::string >//' -e 's/, std::allocator<std::pair<[^<>]*> > >/>/g' \
        -e 's/, std::allocator<[^<>]*> >/>/g' \
        -e 's/(unsigned )int( \(\*\)\(char\*)/\1long\2/' -e 's/(\(char\*, unsigned )int(, unsigned )int/\1long\2long/'
}
