# Makes the Windows package: one zip holding the folder "Kestrel Capture" with the program
# in bin\, the manual in Manual\ and its pictures in docs\screenshots\ (Help opens
# ..\Manual\CManualIndex.htm from the program's folder), and a read-me with Windows line
# ends. Run by the windows-package target:
#   cmake -DPROGRAM=... -DSTRIP=... -DSOURCE=... -DSTAGE=... -DZIP=... -DVERSION=... -P make-zip.cmake
set(root "Kestrel Capture")
set(dir "${STAGE}/${root}")
file(REMOVE_RECURSE "${STAGE}")
file(MAKE_DIRECTORY "${dir}/bin" "${dir}/docs")

# The build keeps its debugging symbols; the package does without them.
execute_process(COMMAND "${STRIP}" --strip-debug -o "${dir}/bin/kestrel-capture.exe" "${PROGRAM}"
                RESULT_VARIABLE stripped)
if(NOT stripped EQUAL 0)
  message(FATAL_ERROR "could not strip ${PROGRAM}")
endif()
file(COPY "${SOURCE}/Manual" DESTINATION "${dir}")
file(COPY "${SOURCE}/docs/screenshots" DESTINATION "${dir}/docs")

file(READ "${SOURCE}/packaging/windows/README.txt" text)
string(REPLACE "@VERSION@" "${VERSION}" text "${text}")
string(REPLACE "\n" "\r\n" text "${text}")
file(WRITE "${dir}/README.txt" "${text}")

file(REMOVE "${ZIP}")
execute_process(COMMAND "${CMAKE_COMMAND}" -E tar cf "${ZIP}" --format=zip -- "${root}"
                WORKING_DIRECTORY "${STAGE}" RESULT_VARIABLE zipped)
if(NOT zipped EQUAL 0)
  message(FATAL_ERROR "could not write ${ZIP}")
endif()
