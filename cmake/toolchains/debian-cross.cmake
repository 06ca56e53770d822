# Cross compilation with Debian's cross compilers and multiarch libraries; included by the
# per-architecture toolchain files after they set MIRVANE_CROSS_TRIPLET, MIRVANE_CROSS_PROCESSOR
# and MIRVANE_CROSS_QEMU.
#
# Target libraries are the ":<arch>" packages of the same names (scripts/install-deps.sh --cross
# installs them): their files live in /usr/lib/<triplet>, their headers in /usr/include, shared
# with the host's. Tests run through qemu-user, called explicitly (no binfmt needed).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${MIRVANE_CROSS_PROCESSOR})
set(CMAKE_LIBRARY_ARCHITECTURE ${MIRVANE_CROSS_TRIPLET})

set(CMAKE_C_COMPILER ${MIRVANE_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${MIRVANE_CROSS_TRIPLET}-g++)

# pkg-config reads the target's .pc files only.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${MIRVANE_CROSS_TRIPLET}/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# Programs (qemu, pkg-config) are the host's; libraries and CMake packages are searched in the
# target's multiarch directories (CMAKE_LIBRARY_ARCHITECTURE), not in the host's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

find_program(MIRVANE_CROSS_QEMU_PROGRAM ${MIRVANE_CROSS_QEMU})
if(MIRVANE_CROSS_QEMU_PROGRAM)
  # Programs run with the multiarch C library (libc6:<arch>, which the -dev packages bring), loader
  # included, from the root: the loader under /usr/<triplet> comes from the cross packages, whose
  # C library version may differ from the multiarch one that the loader then finds through
  # /etc/ld.so.cache, and such a mix crashes in fork().
  set(CMAKE_CROSSCOMPILING_EMULATOR ${MIRVANE_CROSS_QEMU_PROGRAM} -L /)
endif()
