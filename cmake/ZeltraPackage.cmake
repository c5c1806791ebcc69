# The package a user installs: the libraries as one shared library (versioned
# SONAME, exporting only the public C names) and one static library with the
# same contents, their headers, the Fortran module, the plug-in, the tools and
# the documents, described by a CMake package (find_package(ZeltraSDF)) and a
# pkg-config file (zeltra-sdf). Everything is relocatable: the package files
# find the rest relative to themselves, so `cmake --install --prefix P` works
# for any P.
#
# The project's own targets (sdf, zutil, ...) stay static and are what the
# tests link; the package libraries are built from their very objects.
include(CMakePackageConfigHelpers)

# The libraries that make up the package. Each is a folder with an include/
# of public headers and a target of the same name; its objects go into both
# package libraries and its headers are installed. A new library is one more
# name here (its public names must match cmake/zeltra-sdf.map).
set(ZELTRA_PACKAGE_PARTS sdf calc zutil)

set(ZELTRA_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/zeltrasdf")
set(ZELTRA_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/ZeltraSDF")
set(ZELTRA_INSTALL_PKGCONFIGDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
# Pre-1.0 every minor release may change the interface, so it is part of the
# SONAME: libzeltra-sdf.so.0.1.
set(ZELTRA_SOVERSION "${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}")
set(_zeltra_patch "${PROJECT_VERSION_PATCH}")
if(_zeltra_patch STREQUAL "")
  set(_zeltra_patch 0)
endif()

set(_zeltra_objects "")
set(_zeltra_build_includes "")
set(ZELTRA_PACKAGE_HEADERS "")
foreach(part IN LISTS ZELTRA_PACKAGE_PARTS)
  list(APPEND _zeltra_objects $<TARGET_OBJECTS:${part}>)
  list(APPEND _zeltra_build_includes $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/${part}/include>)
  file(GLOB _part_headers ${PROJECT_SOURCE_DIR}/${part}/include/*.h)
  list(APPEND ZELTRA_PACKAGE_HEADERS ${_part_headers})
endforeach()

add_library(zeltra_sdf_shared SHARED ${_zeltra_objects})
add_library(zeltra_sdf_static STATIC ${_zeltra_objects})
foreach(t zeltra_sdf_shared zeltra_sdf_static)
  set_target_properties(${t} PROPERTIES OUTPUT_NAME zeltra-sdf LINKER_LANGUAGE CXX)
  target_include_directories(${t} INTERFACE ${_zeltra_build_includes}
                                            $<INSTALL_INTERFACE:${ZELTRA_INSTALL_INCLUDEDIR}>)
  add_dependencies(${t} ${ZELTRA_PACKAGE_PARTS})
endforeach()

set(_zeltra_map ${CMAKE_CURRENT_LIST_DIR}/zeltra-sdf.map)
set_target_properties(zeltra_sdf_shared PROPERTIES
  EXPORT_NAME sdf
  VERSION "${ZELTRA_SOVERSION}.${_zeltra_patch}"
  SOVERSION "${ZELTRA_SOVERSION}"
  LINK_DEPENDS ${_zeltra_map})
target_link_libraries(zeltra_sdf_shared PRIVATE Threads::Threads m)
target_link_options(zeltra_sdf_shared PRIVATE -Wl,--version-script=${_zeltra_map}
                    -Wl,--no-undefined -Wl,--exclude-libs,ALL)

# A static link brings the library's own needs along: the C++ runtime (a C
# or Fortran program links with its own driver), the math library, threads.
set_target_properties(zeltra_sdf_static PROPERTIES EXPORT_NAME sdf_static)
target_link_libraries(zeltra_sdf_static INTERFACE Threads::Threads stdc++ m)

# The Fortran module: named type codes and explicit interfaces of the
# by-reference forms. It holds no code, only the .mod file a compiler reads.
include(CheckLanguage)
check_language(Fortran)
if(CMAKE_Fortran_COMPILER)
  enable_language(Fortran)
  set(ZELTRA_FORTRAN_MODULE_SOURCES ${PROJECT_SOURCE_DIR}/sdf/fortran/zeltra_sdf_arrays.f90
                                    ${PROJECT_SOURCE_DIR}/sdf/fortran/zeltra_maps.f90
                                    ${PROJECT_SOURCE_DIR}/sdf/fortran/zeltra_messages.f90
                                    ${PROJECT_SOURCE_DIR}/sdf/fortran/zeltra_sdf.f90)
  add_library(zeltra_sdf_fortran OBJECT ${ZELTRA_FORTRAN_MODULE_SOURCES})
  set_target_properties(zeltra_sdf_fortran PROPERTIES
    Fortran_MODULE_DIRECTORY ${PROJECT_BINARY_DIR}/fortran)
  # The sources too: a .mod file is read only by the compiler version that
  # wrote it, and another one can build these interface-only modules itself.
  install(FILES ${PROJECT_BINARY_DIR}/fortran/zeltra_sdf.mod ${PROJECT_BINARY_DIR}/fortran/zeltra_sdf_arrays.mod
                ${PROJECT_BINARY_DIR}/fortran/zeltra_maps.mod
                ${PROJECT_BINARY_DIR}/fortran/zeltra_messages.mod
                ${ZELTRA_FORTRAN_MODULE_SOURCES}
          DESTINATION ${ZELTRA_INSTALL_INCLUDEDIR})
else()
  message(STATUS "No Fortran compiler: the zeltra_sdf Fortran module is not built")
endif()

# ------------------------------------------------------------------ install
install(TARGETS zeltra_sdf_shared zeltra_sdf_static EXPORT ZeltraSDFTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${ZELTRA_PACKAGE_HEADERS} DESTINATION ${ZELTRA_INSTALL_INCLUDEDIR})
install(TARGETS zeltrasdf LIBRARY DESTINATION ${ZELTRA_PLUGIN_INSTALL_DIR})
install(TARGETS portal-run RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET sdf-tool)
  install(TARGETS sdf-tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}
        FILES_MATCHING PATTERN "*.md")

# The CMake package: ZeltraSDF::sdf (shared), ZeltraSDF::sdf_static, and one
# name per part (ZeltraSDF::zutil, ...) that stands for the shared library.
install(EXPORT ZeltraSDFTargets NAMESPACE ZeltraSDF:: DESTINATION ${ZELTRA_INSTALL_CMAKEDIR})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZeltraSDFConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/ZeltraSDFConfig.cmake
  INSTALL_DESTINATION ${ZELTRA_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/ZeltraSDFConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/ZeltraSDFConfig.cmake
              ${PROJECT_BINARY_DIR}/package/ZeltraSDFConfigVersion.cmake
        DESTINATION ${ZELTRA_INSTALL_CMAKEDIR})

# The pkg-config file finds the prefix from its own folder (pcfiledir).
function(zeltra_pc_path var dir)
  if(IS_ABSOLUTE "${dir}")
    set(${var} "${dir}" PARENT_SCOPE)
  else()
    set(${var} "\${prefix}/${dir}" PARENT_SCOPE)
  endif()
endfunction()
cmake_path(ABSOLUTE_PATH ZELTRA_INSTALL_PKGCONFIGDIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}"
           OUTPUT_VARIABLE _zeltra_pcdir)
file(RELATIVE_PATH _zeltra_pc_up "${_zeltra_pcdir}" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" _zeltra_pc_up "${_zeltra_pc_up}")
set(ZELTRA_PC_PREFIX "\${pcfiledir}/${_zeltra_pc_up}")
zeltra_pc_path(ZELTRA_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
zeltra_pc_path(ZELTRA_PC_INCLUDEDIR "${ZELTRA_INSTALL_INCLUDEDIR}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/zeltra-sdf.pc.in ${PROJECT_BINARY_DIR}/package/zeltra-sdf.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/zeltra-sdf.pc DESTINATION ${ZELTRA_INSTALL_PKGCONFIGDIR})

# The Python package (pure Python over the shared library through ctypes):
# into a folder Debian's interpreter searches for the prefixes /usr and
# /usr/local, with _where.py telling it where the library lies from there.
set(ZELTRA_PYTHON_INSTALL_DIR "lib/python3/dist-packages" CACHE STRING
    "Where cmake --install puts the zeltrasdf Python package (relative to the prefix, or absolute)")
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${ZELTRA_PYTHON_INSTALL_DIR}")
  set(zeltra_py_lib "${CMAKE_INSTALL_FULL_LIBDIR}/libzeltra-sdf.so.${ZELTRA_SOVERSION}")
else()
  file(RELATIVE_PATH zeltra_py_lib "/prefix/${ZELTRA_PYTHON_INSTALL_DIR}/zeltrasdf"
       "/prefix/${CMAKE_INSTALL_LIBDIR}/libzeltra-sdf.so.${ZELTRA_SOVERSION}")
endif()
file(WRITE ${PROJECT_BINARY_DIR}/python/_where.py
     "# Written by CMake: the shared library, relative to this folder.\nLIBRARY_RELATIVE = \"${zeltra_py_lib}\"\n")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/zeltrasdf DESTINATION ${ZELTRA_PYTHON_INSTALL_DIR}
        FILES_MATCHING PATTERN "*.py" PATTERN "__pycache__" EXCLUDE)
install(FILES ${PROJECT_BINARY_DIR}/python/_where.py DESTINATION ${ZELTRA_PYTHON_INSTALL_DIR}/zeltrasdf)
