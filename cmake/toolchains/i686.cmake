# 32-bit x86 with the machine's own compiler (package g++-12-multilib), static, run as it is. The kernel's <asm/...>
# are found where the 64-bit compiler has them: the link to them is in the package gcc-multilib, which excludes the
# cross compilers.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc-12)
set(CMAKE_CXX_COMPILER g++-12)
set(CMAKE_C_FLAGS_INIT "-m32 -march=i686 -idirafter /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
