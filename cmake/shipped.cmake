# korx_shipped: what everything that leaves the build is compiled and linked with, the libraries and
# the command alike; scripts/check-hardening looks for it in the files. The command reads logs and
# runs in the name of others, and the libraries lie in processes that do.
add_library(korx_shipped INTERFACE)
target_compile_options(korx_shipped INTERFACE
    -fstack-protector-strong -fstack-clash-protection
    # Two folders give the same files: neither the sources' path nor the build's is in them.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
# Fortified calls need the optimiser. What a distribution asks for gives way, lest it is asked twice.
target_compile_options(korx_shipped INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
target_link_options(korx_shipped INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)
# Indirect calls end at marked places only. The file itself is marked for it where the C library's
# start files are.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "x86_64")
    target_compile_options(korx_shipped INTERFACE -fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
    target_compile_options(korx_shipped INTERFACE -mbranch-protection=standard)
endif()
