# Installs the build tree into a fresh prefix under WORK and uses it as a
# user would, outside the tree (cmake -P, with BUILD_DIR, WORK, SOURCE, CC,
# CXX, FC, GENERATOR and LIBDIR set):
#   - a C program compiled and linked with the flags pkg-config gives;
#   - a CMake project that finds the package with find_package: a C++
#     program on ZeltraSDF::sdf and a C program on ZeltraSDF::sdf_static;
#   - a Fortran program using the zeltra_sdf module, and a wrong call through
#     the module that must not compile;
#   - the installed portal-run, which must find the installed plug-in.
# Each program writes and reads an SDF file; any failure fails the test.
cmake_minimum_required(VERSION 3.25)

set(prefix ${WORK}/prefix)
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})

function(run what)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${WORK}
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${ARGN}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
foreach(f bin/portal-run bin/sdf ${LIBDIR}/zeltrasdf/libzeltrasdf.so ${LIBDIR}/libzeltra-sdf.a
          ${LIBDIR}/libzeltra-sdf.so include/zeltrasdf/sdf.h include/zeltrasdf/zutil.h
          include/zeltrasdf/zeltra_sdf.mod ${LIBDIR}/cmake/ZeltraSDF/ZeltraSDFConfig.cmake
          ${LIBDIR}/pkgconfig/zeltra-sdf.pc share/doc/ZeltraSDF/README.md share/doc/ZeltraSDF/sdf-format.md)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()
set(libdir ${prefix}/${LIBDIR})

# C through pkg-config.
set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
run("pkg-config" pkg-config --cflags --libs zeltra-sdf)
string(STRIP "${run_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run("C build" ${CC} ${SOURCE}/c_consumer.c ${flags} -Wl,-rpath,${libdir} -o ${WORK}/c_consumer)
run("C program" ${WORK}/c_consumer ${WORK}/c.sdf)

# Fortran through the module; the same flags find the .mod file.
run("Fortran build" ${FC} ${SOURCE}/fortran_consumer.f90 ${flags} -Wl,-rpath,${libdir}
    -o ${WORK}/fortran_consumer)
run("Fortran program" ${WORK}/fortran_consumer ${WORK}/fortran.sdf)
execute_process(COMMAND ${FC} -c ${SOURCE}/fortran_misuse.f90 ${flags} -o ${WORK}/misuse.o
                WORKING_DIRECTORY ${WORK} RESULT_VARIABLE rc ERROR_VARIABLE err OUTPUT_QUIET)
if(rc EQUAL 0 OR NOT err MATCHES "Type mismatch in argument")
  message(FATAL_ERROR "a wrong call through the zeltra_sdf module was not refused:\n${err}")
endif()

# C++ and static C through find_package.
run("CMake configure" ${CMAKE_COMMAND} -S ${SOURCE}/cxx -B ${WORK}/cxx -G "${GENERATOR}"
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${CC} -DCMAKE_CXX_COMPILER=${CXX})
run("CMake build" ${CMAKE_COMMAND} --build ${WORK}/cxx)
run("C++ program" ${WORK}/cxx/cxx_consumer ${WORK}/cxx.sdf)
run("static C program" ${WORK}/cxx/c_static_consumer ${WORK}/static.sdf)

# portal-run as installed: a study whose solver writes nothing, run with the
# plug-in it finds beside itself. With that plug-in gone it must fail naming
# the installed place, not fall back on the one in the build tree.
file(WRITE ${WORK}/study/empty.toml "[solver]\ncommand = \"true\"\n\n[[parameters]]\nname = \"x\"\nvalue = 1.0\n")
run("installed portal-run" ${prefix}/bin/portal-run --quiet ${WORK}/study/empty.toml)
set(plugin ${libdir}/zeltrasdf/libzeltrasdf.so)
file(RENAME ${plugin} ${plugin}.away)
execute_process(COMMAND ${prefix}/bin/portal-run --quiet --fresh ${WORK}/study/empty.toml
                RESULT_VARIABLE rc ERROR_VARIABLE err OUTPUT_QUIET)
file(RENAME ${plugin}.away ${plugin})
string(FIND "${err}" "cannot load the plug-in ${plugin}" at)
if(NOT rc EQUAL 4 OR at EQUAL -1)
  message(FATAL_ERROR "installed portal-run without its plug-in gave ${rc}: ${err}")
endif()
message(STATUS "C, C++, static C and Fortran consumers and the installed portal-run all passed")
