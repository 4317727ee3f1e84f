# Runs between the installation and the packaging of CPack: signs the app of the disk image when
# MORVANE_SIGN_IDENTITY, in the environment, names a certificate of the keychain.
if(CPACK_GENERATOR STREQUAL "DragNDrop")
  if("$ENV{MORVANE_SIGN_IDENTITY}" STREQUAL "")
    message(NOTICE "Note: the app in the disk image is not signed (MORVANE_SIGN_IDENTITY is not set).")
  else()
    execute_process(
      COMMAND codesign --sign "$ENV{MORVANE_SIGN_IDENTITY}" --options runtime --timestamp --force
              "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/Morvane Connector.app"
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
endif()
