# The updater and the update manifest expect the disk image under this name.
if(CPACK_GENERATOR STREQUAL "DragNDrop")
  set(CPACK_PACKAGE_FILE_NAME "Morvane-Connector-${CPACK_PACKAGE_VERSION}")
endif()
