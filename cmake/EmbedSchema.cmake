# embed_schema(TARGET): generates a source of the target with the schema of job files, and generates
# it again when the schema changes.
function(embed_schema target)
  set(schema ${PROJECT_SOURCE_DIR}/share/runlet-job/job.rng)
  file(READ ${schema} RUNLET_SCHEMA)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${schema})
  configure_file(${PROJECT_SOURCE_DIR}/src/tool/verbs/schema_text.cpp.in
    ${PROJECT_BINARY_DIR}/generated/schema_text.cpp @ONLY)
  target_sources(${target} PRIVATE ${PROJECT_BINARY_DIR}/generated/schema_text.cpp)
endfunction()
