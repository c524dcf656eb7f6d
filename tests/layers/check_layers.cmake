# Compiles the two probes against a layer's include root: the one that
# includes a lower layer must build, the one that includes a higher layer
# must fail for the want of that header and nothing else.
#   cmake -DCXX=... -DROOT=build/layers/engine -DDIR=tests/layers -P check_layers.cmake
foreach(probe include_down include_up)
  execute_process(
    COMMAND ${CXX} -std=c++20 -fsyntax-only -I${ROOT} -x c++ ${DIR}/${probe}.cc
    RESULT_VARIABLE rc ERROR_VARIABLE err OUTPUT_VARIABLE out)
  set(${probe}_rc ${rc})
  set(${probe}_err "${err}")
endforeach()
if(NOT include_down_rc EQUAL 0)
  message(FATAL_ERROR "a lower layer's header does not build against ${ROOT}:\n${include_down_err}")
endif()
if(include_up_rc EQUAL 0)
  message(FATAL_ERROR "a higher layer's header builds against ${ROOT}: the layers are not held")
endif()
if(NOT include_up_err MATCHES "reports/list_sorting.h")
  message(FATAL_ERROR "the upward include failed for another reason:\n${include_up_err}")
endif()
message(STATUS "upward include refused: ${include_up_err}")
