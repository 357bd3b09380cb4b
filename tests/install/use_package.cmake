# Installs the build BUILD below WORK, and builds and runs the project SOURCE against it.
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE status OUTPUT_VARIABLE output
                  ERROR_VARIABLE output)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGV}\nexit status ${status}\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/build -G Ninja -DCMAKE_PREFIX_PATH=${WORK}/prefix
    -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_CXX_FLAGS=${FLAGS})
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${WORK}/prefix/bin/kplog compile ${SOURCE}/shop.yaml -o ${WORK}/shop.ldf)
function(expect_output program expected)
  run(${WORK}/build/${program} ${WORK}/shop.ldf)
  if(NOT output STREQUAL "${expected}\n")
    message(FATAL_ERROR "unexpected output of ${program}: ${output}")
  endif()
endfunction()
expect_output(shop "Order 7 was paid by alice")
expect_output(typed_shop "Order 8 was paid by bob")
