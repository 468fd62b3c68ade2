# Runs quorvel-import on the sample tree and on a missing folder.
execute_process(COMMAND ${IMPORTER} ${SOURCE}/samples/orbit/src ${WORK}/cli.db
                RESULT_VARIABLE code OUTPUT_VARIABLE out)
if(NOT code EQUAL 0)
  message(FATAL_ERROR "import failed with ${code}: ${out}")
endif()
string(FIND "${out}" "***QUORVEL\n***STATUS: " at)
if(NOT at EQUAL 0)
  message(FATAL_ERROR "the protocol must start with ***QUORVEL: ${out}")
endif()
execute_process(COMMAND ${IMPORTER} ${WORK}/no-such-folder ${WORK}/missing.db
                RESULT_VARIABLE code OUTPUT_VARIABLE out)
if(NOT code EQUAL 1 OR NOT out MATCHES "\\*\\*\\*ERROR: Folder does not exist" OR EXISTS ${WORK}/missing.db)
  message(FATAL_ERROR "a missing folder must fail cleanly: ${code} ${out}")
endif()
execute_process(COMMAND ${IMPORTER} only-one-argument RESULT_VARIABLE code OUTPUT_VARIABLE out)
if(NOT code EQUAL 2)
  message(FATAL_ERROR "a wrong command line must give 2: ${code} ${out}")
endif()
