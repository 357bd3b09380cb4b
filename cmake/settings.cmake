# Compiler settings of the whole project, as one interface target: kplog_settings. Variables hold for
# this project alone, also where it is a part of another.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

add_library(kplog_settings INTERFACE)
target_include_directories(kplog_settings INTERFACE ${PROJECT_SOURCE_DIR}
                                                    ${PROJECT_SOURCE_DIR}/include)
target_compile_options(
  kplog_settings
  INTERFACE -Wall
            -Wextra
            -Wpedantic
            -Wshadow
            -Wconversion
            -Wsign-conversion
            -Wformat=2
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wold-style-cast
            -Wcast-align
            -Wvla
            $<$<BOOL:${KPLOG_WERROR}>:-Werror>
            $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
            $<$<BOOL:${KPLOG_FUZZ}>:-fsanitize=fuzzer-no-link>
            # g++ 12 raises these two inside the standard library's headers, the first when it
            # instruments them, the second when it optimises operations of std::string.
            $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${KPLOG_SANITIZED}>>:-Wno-maybe-uninitialized>
            $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
            -fstack-protector-strong
            -fstack-clash-protection
            $<$<CONFIG:Release,RelWithDebInfo>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>
            # Calls within a library are direct: nobody replaces its functions from outside.
            $<$<CONFIG:Release,RelWithDebInfo>:-fno-semantic-interposition>)
target_compile_definitions(kplog_settings INTERFACE $<$<BOOL:${KPLOG_FAULTS}>:KP_FAULTS>
                                                    $<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)

# Libraries are shared unless BUILD_SHARED_LIBS says otherwise. What links a static one finds ICU
# itself; a shared one has it.
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(kplog_library_kind STATIC)
else()
  set(kplog_library_kind SHARED)
endif()

# kplog_shared_library(NAME OBJECTS): the library made of an OBJECT library, shared unless static ones
# are asked for. A shared one has SONAME 1, and stays loaded once it is: ICU beneath it and objects
# of each thread live on, and would leak with every unloading.
function(kplog_shared_library name objects)
  add_library(${name} ${kplog_library_kind} $<TARGET_OBJECTS:${objects}>)
  add_library(kplog::${name} ALIAS ${name})
  set_target_properties(
    ${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION 1 LINKER_LANGUAGE CXX
                       INSTALL_RPATH "\$ORIGIN")
  target_link_libraries(${name} PUBLIC Threads::Threads)
  target_link_options(${name} PRIVATE $<$<NOT:$<BOOL:${KPLOG_SANITIZED}>>:-Wl,-z,defs>
                      -Wl,-z,relro,-z,now,-z,noexecstack,-z,nodelete
                      $<$<CONFIG:Release,RelWithDebInfo>:-Wl,-Bsymbolic-functions>)
  target_include_directories(
    ${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                   $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                   $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kplog>)
endfunction()
