# Writes the version resource: cmake -D VERSION=... -D SOURCE=... -D INPUT=... -D OUTPUT=... -P WriteVersion.cmake
#
# Run at each build. The product's version names the commit that the sources are of, "1.0.0+3fa9c1d2e4b5", and says whether they were
# changed since, "-dirty"; without a repository of their own there is no commit to name. The file changes only when the text does.
set(PRODUCT_VERSION ${VERSION})
string(REPLACE "." "," VERSION_NUMBERS "${VERSION},0")

find_program(git git)
if(git)
  execute_process(COMMAND "${git}" -C "${SOURCE}" rev-parse --show-prefix
    OUTPUT_VARIABLE below RESULT_VARIABLE failed OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT failed AND below STREQUAL "")
    execute_process(COMMAND "${git}" -C "${SOURCE}" describe --always --dirty --abbrev=12 "--exclude=*"
      OUTPUT_VARIABLE commit RESULT_VARIABLE failed OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(NOT failed)
      string(APPEND PRODUCT_VERSION "+${commit}")
    endif()
  endif()
endif()

configure_file("${INPUT}" "${OUTPUT}" @ONLY)
