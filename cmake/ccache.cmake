# Compile through ccache where there is one; looked for every time, so that it may come and go.
find_program(ccache ccache NO_CACHE)
if(ccache AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER ${ccache})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${ccache})
endif()
