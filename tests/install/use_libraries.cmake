# Builds a program with the libraries that are installed at PREFIX, by find_package and by pkg-config,
# from a place to which they were moved; and again with static ones, which are built from the
# sources KPLOG. All below WORK.
include(${CMAKE_CURRENT_LIST_DIR}/run.cmake)
find_program(PKG_CONFIG pkg-config REQUIRED)

file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/use)
file(WRITE ${WORK}/use/main.cpp "#include \"kp_LOG.h\"
#include <cstdio>
#if KP_LOG_VERSION < KP_LOG_VERSION_NUMBER(1, 0, 999) || KP_LOG_VERSION >= KP_LOG_VERSION_NUMBER(2, 0, 0)
#error not comparable
#endif
int main() {
  kp_LOG_LogEntry entry;
  entry.SetLogLevel(7);
  std::printf(\"%d.%d.%d %u\", KP_LOG_VERSION_MAJOR, KP_LOG_VERSION_MINOR, KP_LOG_VERSION_PATCH,
              entry.GetLogLevel());
}
")
file(WRITE ${WORK}/use/CMakeLists.txt "cmake_minimum_required(VERSION 3.25)
project(use LANGUAGES CXX)
find_package(kplog REQUIRED COMPONENTS kplog \${COMPONENT})
file(WRITE \${CMAKE_BINARY_DIR}/version \${kplog_VERSION})
add_executable(use main.cpp)
target_link_libraries(use PRIVATE kplog::kplog)
")

# The program's output is the version of the package.
function(expect_version program)
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/${LIBDIR} ${program})
  if(NOT output STREQUAL "${version} 7")
    message(FATAL_ERROR "unexpected output of ${program}: ${output}, not ${version}")
  endif()
endfunction()

function(use_libraries name)
  set(configure ${CMAKE_COMMAND} -S ${WORK}/use -B ${WORK}/${name} -G Ninja
                -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${COMPILER}
                -DCMAKE_CXX_FLAGS=${FLAGS})
  run(${configure})
  run(${CMAKE_COMMAND} --build ${WORK}/${name})
  file(READ ${WORK}/${name}/version version)
  expect_version(${WORK}/${name}/use)
  execute_process(COMMAND ${configure} -DCOMPONENT=unknown RESULT_VARIABLE status
                  OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(status EQUAL 0 OR NOT output MATCHES "there is no component unknown")
    message(FATAL_ERROR "an unknown component is found:\n${output}")
  endif()

  set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
  foreach(library kplog kplog-base kplog-intl kplog-recorder)
    run(${PKG_CONFIG} --exact-version=${version} ${library})
  endforeach()
  run(${PKG_CONFIG} --cflags --libs ${ARGN} kplog)
  separate_arguments(flags UNIX_COMMAND "${output} ${FLAGS}")
  run(${COMPILER} -std=c++17 ${WORK}/use/main.cpp -o ${WORK}/${name}/by_pkg_config ${flags})
  expect_version(${WORK}/${name}/by_pkg_config)
endfunction()

# Nothing in the package names the place where it was installed first.
set(prefix ${WORK}/moved)
file(COPY ${PREFIX}/ DESTINATION ${prefix})
use_libraries(shared)

set(prefix ${WORK}/static_prefix)
run(${CMAKE_COMMAND} -S ${KPLOG} -B ${WORK}/static_build -G Ninja -DBUILD_SHARED_LIBS=OFF
    -DKPLOG_TOOLS=OFF -DKPLOG_TESTS=OFF -DKPLOG_EXAMPLES=OFF -DCMAKE_CXX_COMPILER=${COMPILER}
    -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS=-O0 -DCMAKE_UNITY_BUILD=ON
    -DCMAKE_UNITY_BUILD_BATCH_SIZE=12)
run(${CMAKE_COMMAND} --build ${WORK}/static_build)
run(${CMAKE_COMMAND} --install ${WORK}/static_build --prefix ${prefix})
file(GLOB shared_ones ${prefix}/${LIBDIR}/*.so*)
if(shared_ones)
  message(FATAL_ERROR "not static: ${shared_ones}")
endif()
use_libraries(static --static)
