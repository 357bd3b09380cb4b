# Builds the example EXAMPLE as a project of its own, with the package that is installed at PREFIX,
# below WORK, and runs its test TEST with PYTHON.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

file(REMOVE_RECURSE ${WORK})
cmake_path(GET EXAMPLE FILENAME name)
file(COPY ${EXAMPLE} DESTINATION ${WORK})
run(${CMAKE_COMMAND} -S ${WORK}/${name} -B ${WORK}/build -G Ninja -DCMAKE_PREFIX_PATH=${PREFIX}
    -DCMAKE_CXX_COMPILER=${COMPILER} "-DCMAKE_CXX_FLAGS=${FLAGS} -Wall -Wextra -Werror")
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${PYTHON} ${TEST} ${WORK}/build/${name} ${PREFIX}/bin/kplog ${WORK}/build/key_value_events
    ${WORK}/${name}/server.conf)
