# A static img_deploy over musl. Debian's musl-tools has no C++ compiler; but the system needs nothing of
# the C++ library at run time, so g++ serves with its own headers for C++ and musl's for C.
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
foreach(asked dumpversion print-multiarch print-file-name=include)
  execute_process(COMMAND g++ "-${asked}"
    OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  list(APPEND answers "${answer}")
endforeach()
list(GET answers 0 version)
list(GET answers 1 multiarch)
list(GET answers 2 own)
string(REPLACE "-linux-gnu" "-linux-musl" musl "${multiarch}")

# What musl lacks, the kernel's headers, comes last.
set(c "-isystem /usr/include/${musl} -isystem ${own} -idirafter /usr/include")
string(APPEND c " -idirafter /usr/include/${multiarch}")
set(CMAKE_C_FLAGS_INIT "-nostdinc ${c}")
# The headers for C++ were made over another C library and ask for its version.
string(CONCAT CMAKE_CXX_FLAGS_INIT "-nostdinc -nostdinc++ -isystem /usr/include/c++/${version} "
  "-isystem /usr/include/${multiarch}/c++/${version} ${c} '-D__GLIBC_PREREQ(a,b)=0'")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -specs=/usr/lib/${musl}/musl-gcc.specs")
