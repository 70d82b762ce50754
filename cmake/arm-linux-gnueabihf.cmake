# 32-bit ARM with hardware floating point, which Debian calls armhf.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(triplet arm-linux-gnueabihf)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # notes about objects made by GCC 6, of which there are none
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
