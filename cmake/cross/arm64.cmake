set(ZOBI_TRIPLET aarch64-linux-gnu)
include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
