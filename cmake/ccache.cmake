# Compile through ccache where there is one.
find_program(KORX_CCACHE ccache)
if(KORX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER ${KORX_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${KORX_CCACHE})
endif()
