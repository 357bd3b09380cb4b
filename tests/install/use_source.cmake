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

# The libraries alone where nothing else is asked for; what needs the command says so.
file(MAKE_DIRECTORY ${WORK}/alone)
file(WRITE ${WORK}/alone/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)
project(alone LANGUAGES CXX)
add_subdirectory(${KPLOG} kplog)
if(COMPILED)
  kplog_add_definitions(events SOURCES events.yaml)
endif()
")
set(configure_alone ${CMAKE_COMMAND} -S ${WORK}/alone -B ${WORK}/alone/build -G Ninja
                    -DCMAKE_CXX_COMPILER=${COMPILER})
run(${configure_alone})
run(${CMAKE_COMMAND} --build ${WORK}/alone/build -- -t commands)
string(FIND "${output}" logging/libkplog.so library)
string(FIND "${output}" tools/ tools)
if(library EQUAL -1 OR NOT tools EQUAL -1)
  message(FATAL_ERROR "not just the libraries would be built:\n${output}")
endif()
execute_process(COMMAND ${configure_alone} -DCOMPILED=ON RESULT_VARIABLE status
                OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(status EQUAL 0 OR NOT output MATCHES "kplog_add_definitions needs the kplog command")
  message(FATAL_ERROR "the missing command is not told:\n${output}")
endif()
