# Where things go when installed, decided before the targets are made so the
# build tree can mirror it: portal-run finds the plug-in by one relative path
# from its own folder, the same in the build tree and in an installed tree.
include(GNUInstallDirs)

# The plug-in is loaded by path, never linked, so it lives in a folder of its
# own rather than among the libraries on the linker's search path.
set(ZELTRA_PLUGIN_INSTALL_DIR "${CMAKE_INSTALL_LIBDIR}/zeltrasdf")
cmake_path(ABSOLUTE_PATH ZELTRA_PLUGIN_INSTALL_DIR BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}"
           OUTPUT_VARIABLE _zeltra_plugin_full)
file(RELATIVE_PATH _zeltra_plugin_rel "${CMAKE_INSTALL_FULL_BINDIR}" "${_zeltra_plugin_full}")
set(ZELTRA_PLUGIN_FROM_BIN "${_zeltra_plugin_rel}/libzeltrasdf.so")

# In the build tree portal-run lies in tools/, so the plug-in goes to the same
# relative place from there.
cmake_path(ABSOLUTE_PATH _zeltra_plugin_rel BASE_DIRECTORY "${PROJECT_BINARY_DIR}/tools"
           NORMALIZE OUTPUT_VARIABLE ZELTRA_BUILD_PLUGIN_DIR)
unset(_zeltra_plugin_rel)
unset(_zeltra_plugin_full)
