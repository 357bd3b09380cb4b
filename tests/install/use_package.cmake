# Installs the build BUILD below WORK, and builds and runs the project SOURCE against it, where ICU's
# development files cannot be found. PAGE is the one that tells of the build of such projects.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)

file(REMOVE_RECURSE ${WORK})
run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${WORK}/prefix)
set(configure ${CMAKE_COMMAND} -S ${SOURCE} -B ${WORK}/build)
run(${configure} -G Ninja -DCMAKE_PREFIX_PATH=${WORK}/prefix -DCMAKE_CXX_COMPILER=${COMPILER}
    -DCMAKE_CXX_FLAGS=${FLAGS} -DCMAKE_C_FLAGS=${FLAGS} -DCMAKE_DISABLE_FIND_PACKAGE_ICU=ON)
run(${CMAKE_COMMAND} --build ${WORK}/build)
run(${CMAKE_COMMAND} --install ${WORK}/build --prefix ${WORK}/shop)
run(${WORK}/prefix/bin/kplog compile ${SOURCE}/shop.yaml -o ${WORK}/shop.ldf)

# The program's output, given the arguments.
function(expect_output program expected)
  run(${WORK}/build/${program} ${ARGN})
  if(NOT output STREQUAL "${expected}\n")
    message(FATAL_ERROR "unexpected output of ${program}: ${output}")
  endif()
endfunction()
expect_output(shop "Order 7 was paid by alice" ${WORK}/shop.ldf)
expect_output(typed_shop "Order 8 was paid by bob" ${WORK}/shop.ldf)
expect_output(strict_shop "Order 9 was paid by carol" ${WORK}/shop.ldf)
expect_output(lock_name "shop_log")

# What was installed, and what the program carries.
set(installed ${WORK}/shop/share/shop)
expect_output(shop "Order 7 was paid by alice" ${installed}/shop_events.ldf)
expect_output(carrying_shop "Order 9 was paid by dan, Order 9 was shipped")
expect_output(carrying_shop "Bestellung 9 hat dan bezahlt, Order 9 was shipped"
              ${installed}/shop_more_catalog de_AT)

# The names of files in the folder.
function(expect_files folder expected)
  file(GLOB_RECURSE found RELATIVE ${folder} ${folder}/*)
  if(NOT found STREQUAL "${expected}")
    message(FATAL_ERROR "unexpected files in ${folder}: ${found}")
  endif()
endfunction()
set(bundles shop_more_catalog/de.res shop_more_catalog/ja.res shop_more_catalog/root.res)
expect_files(${installed} "shop_events.ldf;shop_more.ldf;${bundles}")

# A language that is taken out does not stay in the catalog.
run(${configure} -DSHOP_LANGUAGES=de)
run(${CMAKE_COMMAND} --build ${WORK}/build)
expect_files(${WORK}/build/shop_more_catalog "de.res;root.res")

# The page shows how the program hands its definitions to the library.
file(READ ${SOURCE}/carrying_shop.cpp program)
string(FIND "${program}" "static std::string path_in_memory" begin)
string(SUBSTRING "${program}" ${begin} -1 program)
string(FIND "${program}" "\n}\n" end)
string(SUBSTRING "${program}" 0 ${end} program)
string(REPLACE "\n" "\n    " program "${program}")
file(READ ${PAGE} page)
string(FIND "${page}" "\n    ${program}\n    }\n" place)
if(place EQUAL -1)
  message(FATAL_ERROR "not in ${PAGE}:\n${program}")
endif()
