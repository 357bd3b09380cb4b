# Configures the project SOURCE below WORK with kplog's sources KPLOG as a part of it, where GoogleTest
# cannot be found, and asks what would be built for it: all that it needs, and no warning an error.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK} -G Ninja -DKPLOG_SOURCE=${KPLOG}
    -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON)
run(${CMAKE_COMMAND} --build ${WORK} -- -t commands)
foreach(part logging/libkplog.so tools/main.cpp "kplog compile" "kplog header"
        "kplog catalog build" kplogEmbed.cmake "-o typed_shop")
  string(FIND "${output}" "${part}" place)
  if(place EQUAL -1)
    message(FATAL_ERROR "nothing would make ${part}:\n${output}")
  endif()
endforeach()
foreach(part -Werror _test.cpp package_history)
  string(FIND "${output}" "${part}" place)
  if(NOT place EQUAL -1)
    message(FATAL_ERROR "${part} comes into the build of a project that uses kplog")
  endif()
endforeach()
