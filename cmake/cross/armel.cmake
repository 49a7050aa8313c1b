set(ZOBI_TRIPLET arm-linux-gnueabi)
include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
