# The disk image holds the app, for people to drag, a text that says so, and the link to Applications
# that CPack adds. The updater and the update manifest expect it under this name.
if(CPACK_GENERATOR STREQUAL "DragNDrop")
  set(CPACK_PACKAGE_FILE_NAME "Morvane-Connector-${CPACK_PACKAGE_VERSION}")
  list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build_folder)
  set(CPACK_INSTALL_CMAKE_PROJECTS "${build_folder};${CPACK_PACKAGE_NAME};app;/")
endif()
