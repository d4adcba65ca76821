# Compiles texts into a target, again whenever they change.

# embed_configured(TARGET TEXT TEMPLATE): adds the source TEMPLATE with the caller's variables filled in,
# whose values come from the file TEXT. Both paths are relative to the project's folder.
function(embed_configured target text template)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${text})
  cmake_path(GET template STEM LAST_ONLY name)
  set(source ${PROJECT_BINARY_DIR}/generated/${name})
  configure_file(${PROJECT_SOURCE_DIR}/${template} ${source} @ONLY)
  target_sources(${target} PRIVATE ${source})
endfunction()

# embed_text(TARGET TEXT TEMPLATE): the same, with the text as @TEXT@.
function(embed_text target text template)
  file(READ ${PROJECT_SOURCE_DIR}/${text} TEXT)
  embed_configured(${target} ${text} ${template})
endfunction()

# embed_rules(TARGET TEXT TEMPLATE): the same for the rules of check: @RULES@ are the rows of a table,
# @CODES@ the cases of a switch. Anything that does not have the form of a rule is an error. The
# compiler finds mistakes that the form does not exclude.
function(embed_rules target text template)
  file(READ ${PROJECT_SOURCE_DIR}/${text} rules)
  string(REGEX REPLACE "^(#[^\n]*\n)+" "" rules "${rules}")
  set(head "RJ([0-9][0-9][0-9]) ([A-Za-z0-9]+) (error|warning|note): ([^\n]+)\n\n")
  set(paragraphs "  [^\n]+\n(  [^\n]+\n|\n)*")
  set(example "\n  Wrong:\n(    [^\n]+\n)+  Right:\n(    [^\n]+\n)+")
  set(rule "${head}(${paragraphs}${example})")

  string(REGEX REPLACE "${rule}" "" rest "${rules}")
  string(STRIP "${rest}" rest)
  if(NOT rest STREQUAL "")
    string(REGEX MATCH "^[^\n]*" line "${rest}")
    message(FATAL_ERROR "${text}: does not have the form of a rule: ${line}")
  endif()

  string(REGEX REPLACE "${rule}"
    "{RuleId::\\2, Severity::\\3, R\"rule(\\4)rule\",\nR\"rule(\\5)rule\"},\n" RULES "${rules}")
  # The indentation and the last line end belong to the file.
  string(REPLACE "R\"rule(  " "R\"rule(" RULES "${RULES}")
  string(REPLACE "\n  " "\n" RULES "${RULES}")
  string(REPLACE "\n)rule\"" ")rule\"" RULES "${RULES}")
  # The 1 before the code keeps it from being an octal number.
  string(REGEX REPLACE "${rule}" "case RuleId::\\2:\nreturn 1\\1;\n" CODES "${rules}")
  embed_configured(${target} ${text} ${template})
endfunction()
