# Finds the CUPS library and defines the target CUPS::cups.
#
# CUPS 2.5 and later bring a pkg-config file, earlier releases the program cups-config; never both, so both are tried.

find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(CUPS QUIET cups)
endif()

if(CUPS_FOUND)
  set(CUPS_LIBRARY_FLAGS ${CUPS_LDFLAGS})
  pkg_get_variable(CUPS_SERVERBIN cups cups_serverbin)
  pkg_get_variable(CUPS_DATADIR cups cups_datadir)
else()
  find_program(CUPS_CONFIG cups-config)
  mark_as_advanced(CUPS_CONFIG)
  if(CUPS_CONFIG)
    foreach(query IN ITEMS version cflags libs serverbin datadir)
      execute_process(
        COMMAND ${CUPS_CONFIG} --${query}
        OUTPUT_VARIABLE CUPS_ANSWER_${query}
        OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
    set(CUPS_VERSION "${CUPS_ANSWER_version}")
    separate_arguments(CUPS_CFLAGS UNIX_COMMAND "${CUPS_ANSWER_cflags}")
    # cups-config names what libcups itself was linked with as well; the filter calls libcups alone.
    set(CUPS_LIBRARY_FLAGS -lcups)
    set(CUPS_SERVERBIN "${CUPS_ANSWER_serverbin}")
    set(CUPS_DATADIR "${CUPS_ANSWER_datadir}")
  endif()
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(
  CUPS
  REQUIRED_VARS CUPS_LIBRARY_FLAGS CUPS_SERVERBIN CUPS_DATADIR
  VERSION_VAR CUPS_VERSION)

if(CUPS_FOUND AND NOT TARGET CUPS::cups)
  add_library(CUPS::cups INTERFACE IMPORTED)
  target_compile_options(CUPS::cups INTERFACE ${CUPS_CFLAGS})
  target_link_libraries(CUPS::cups INTERFACE ${CUPS_LIBRARY_FLAGS})
endif()
