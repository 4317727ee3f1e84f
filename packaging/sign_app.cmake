# Runs between the installation and the packaging of CPack, once for each package of a Mac: signs the
# app of the disk image, and the program of the archive, when MORVANE_SIGN_IDENTITY, in the
# environment, names a certificate of the keychain, or is "-": an ad hoc signature, for oneself.
if(CPACK_SYSTEM_NAME MATCHES "Darwin")
  set(identity "$ENV{MORVANE_SIGN_IDENTITY}")
  set(signed "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/bin/morvane-connector")
  if(CPACK_GENERATOR STREQUAL "DragNDrop")
    set(signed "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/Morvane Connector.app")
  endif()
  set(timestamp --timestamp)
  if(identity STREQUAL "-")
    set(timestamp --timestamp=none)
  endif()
  if(identity STREQUAL "")
    get_filename_component(name "${signed}" NAME)
    message(NOTICE "Note: ${name} is not signed (MORVANE_SIGN_IDENTITY is not set).")
  else()
    execute_process(
      COMMAND codesign --sign "${identity}" --options runtime ${timestamp} --force "${signed}"
      COMMAND_ERROR_IS_FATAL ANY)
  endif()
endif()
