# Writes BuildVersion.h, with the version and the commit: "1.0.0 (commit 0123456789ab)". The commit is that of the git
# checkout, else that in the file build-commit, which packaging/copy-sources writes into a copy. A file that would stay
# the same is not touched, so only a new commit, or the first change after it, compiles something again.
# Call: cmake -D SOURCE=... -D VERSION=... -D FILE=... -P BuildVersion.cmake
set(commit "")
find_program(GIT git)
if(GIT AND EXISTS ${SOURCE}/.git)
  execute_process(COMMAND ${GIT} --no-optional-locks describe --always --abbrev=12 --exclude=* --dirty=-changed
    WORKING_DIRECTORY ${SOURCE} OUTPUT_VARIABLE described OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE status)
  if(status EQUAL 0)
    set(commit " (commit ${described})")
  endif()
elseif(EXISTS ${SOURCE}/build-commit)
  file(STRINGS ${SOURCE}/build-commit described)
  if(NOT described MATCHES "^[0-9a-f]+(-changed)?$")
    message(FATAL_ERROR "${SOURCE}/build-commit contains \"${described}\" and not a commit such as 0123456789ab: "
      "correct it, or remove the file")
  endif()
  set(commit " (commit ${described})")
endif()
file(CONFIGURE OUTPUT ${FILE} CONTENT "#pragma once\n\n#define XMLA_BUILD_VERSION \"${VERSION}${commit}\"\n")
