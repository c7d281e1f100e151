# Writes BuildVersion.h, with the version and, in a git checkout, the commit: "1.0.0 (commit 0123456789ab)". A file that
# would stay the same is not touched, so only a new commit, or the first change after it, compiles something again.
# Call: cmake -D SOURCE=... -D VERSION=... -D FILE=... -P BuildVersion.cmake
set(commit "")
find_program(GIT git)
if(GIT AND EXISTS ${SOURCE}/.git)
  execute_process(COMMAND ${GIT} --no-optional-locks describe --always --abbrev=12 --exclude=* --dirty=-changed
    WORKING_DIRECTORY ${SOURCE} OUTPUT_VARIABLE described OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE status)
  if(status EQUAL 0)
    set(commit " (commit ${described})")
  endif()
endif()
file(CONFIGURE OUTPUT ${FILE} CONTENT "#pragma once\n\n#define XMLA_BUILD_VERSION \"${VERSION}${commit}\"\n")
