set(ZOBI_TRIPLET arm-linux-gnueabihf)
include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
