# Builds on any machine with Debian for one of Debian's other architectures: of the triplet ZOBI_TRIPLET, with Debian's
# cross compiler and that architecture's packages. What is built runs under an emulated processor.
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "${ZOBI_TRIPLET}")
set(CMAKE_C_COMPILER ${ZOBI_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ZOBI_TRIPLET}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR}-static)
# Where pkg-config looks, here and in what the build starts.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${ZOBI_TRIPLET}/pkgconfig:/usr/share/pkgconfig)
