# ---- The sweep: every call fails, and the power goes at every change ---------------------------------------------
# The calls are a module that each run loads, so that the library's own start is part of every run. Sanitizers have a heap
# of their own, and an emulator is too slow.

if(NOT MARL_SANITIZE AND NOT CMAKE_CROSSCOMPILING)
    add_library(sweep_calls MODULE sweep/calls.cpp)
    target_include_directories(sweep_calls PRIVATE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(sweep_calls PRIVATE marl_warnings sentrel_core marl)
    add_executable(sweep sweep/sweep.cpp)
    target_link_libraries(sweep PRIVATE marlsim marlsim_script marl_warnings ${CMAKE_DL_LIBS})
    add_dependencies(sweep sweep_calls)
    foreach(mode reduced cuts plants)
        add_test(NAME sweep_${mode} COMMAND ${PROJECT_SOURCE_DIR}/scripts/sweep --build ${PROJECT_BINARY_DIR} --${mode})
        set_tests_properties(sweep_${mode} PROPERTIES TIMEOUT 300 RUN_SERIAL ON)
    endforeach()
endif()
