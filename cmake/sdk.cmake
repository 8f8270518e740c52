# Says in one line when the SDK is older than what the program is meant to be built with. That is no error: Macs on
# macOS 13 and 14 have no newer one.
set(sdk macosx)
if(CMAKE_OSX_SYSROOT)
  set(sdk ${CMAKE_OSX_SYSROOT})
endif()
execute_process(COMMAND xcrun --sdk ${sdk} --show-sdk-version OUTPUT_VARIABLE sdk_version
                OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(sdk_version AND sdk_version VERSION_LESS 26)
  message(NOTICE "The SDK is ${sdk_version}, older than 26: the program can be used, but not signed or packed.")
endif()
