# Installs the build BUILD below WORK, and builds and runs the project SOURCE against it, where ICU's
# development files cannot be found.
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
    -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_CXX_FLAGS=${FLAGS} -DCMAKE_C_FLAGS=${FLAGS}
    -DCMAKE_DISABLE_FIND_PACKAGE_ICU=ON)
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
expect_output(strict_shop "Order 9 was paid by carol")
expect_output(lock_name "shop_log")
