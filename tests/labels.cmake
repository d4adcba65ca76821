# The labels of the tests. CTest reads this file after it has asked the programs for their tests, which
# are in the variables runlet_NAME_tests_TESTS. Each test has the name of its program as a label, and
# the labels that match it here. A pattern that matches no test is an error.
cmake_policy(VERSION 3.22)

# label(LABEL PROGRAM PATTERN...): labels every test Suite.Name of the program runlet_PROGRAM_tests that
# matches one of the regular expressions.
function(label label program)
  if(NOT DEFINED runlet_${program}_tests_TESTS)
    return()  # the program is not built
  endif()
  foreach(pattern IN LISTS ARGN)
    set(tests ${runlet_${program}_tests_TESTS})
    list(FILTER tests INCLUDE REGEX "${pattern}")
    if(NOT tests)
      message(SEND_ERROR "label ${label}: runlet_${program}_tests has no test that matches ${pattern}")
    endif()
    foreach(test IN LISTS tests)
      set_property(GLOBAL APPEND PROPERTY "labels of ${test}" ${label})
    endforeach()
  endforeach()
endfunction()

# long: tests of all short inputs or of many random ones, or that take several seconds. Left out by
# scripts/test --fast.
label(long model .)
label(long requests .)
label(long unit
  XmlDocument\\.IsWhatTheLibraryLoadsFromRandom)
label(long tool
  KilledRuns\\.
  BoundedWork\\.IsThatOfTheLibrary DeepJob\\.IsAcceptedByEveryVerb LargeJobTool\\.)

# descriptors: tests that examine or break the open files of the adapter or its tasks. In a coverage
# build the counter file is one of these.
label(descriptors process
  Child\\.IsNotWaitedForBeyond Streams\\.OfTheChild Streams\\.KeepTheOld
  Inheritance\\.OfATerminal LongRange\\. BrokenStreams\\.)
label(descriptors tool
  TheirThreeStreams IncludeNoTerminal ExecStreams\\.OfThe ExecStreams\\.KeepTheOld
  ExecStreams\\.ThatCannot ExecAsAChild)

# no-descriptors: tests without a descriptor to spare, not even for a counter file.
label(no-descriptors process FewDescriptors\\.)

# random-jobs: tests that run some lines that no other test runs.
label(random-jobs requests Property\\.)

# not-in-valgrind: tests that do not work or show nothing under valgrind; only other runs have them.
label(not-in-valgrind process
  # It gives up if the start of a program fails late, and changes the name of the adapter.
  Exec\\.ThatFailsIs Program\\. Start\\.AnswersUnder Options\\.ThatAreInvalid
  # It needs processes, memory and descriptors itself.
  NoFork\\. OfTheForkFail ProcessLimit\\. SwitchesBeforeItForks ShortOfMemory\\. FewDescriptors\\.
  BrokenStreams\\. LongRange\\. HostileJobFile\\.OfTheSmallest HostileJobFile\\.WithAHundred
  # It interferes with the signals and libraries of the adapter.
  IgnoredChildren\\. SignalDuringTheWait\\.ThatStops ThatCannotBeReadToItsEnd
  # Hundreds of runs would show nothing new.
  ThatShrinksAndGrows
  # The test needs the stack of the process, which valgrind replaces with its own, and 200 million
  # levels would take minutes.
  MayBeAsDeepAsTheStackAllows)

foreach(program unit process model requests tool)
  foreach(test IN LISTS runlet_${program}_tests_TESTS)
    get_property(labels GLOBAL PROPERTY "labels of ${test}")
    list(REMOVE_DUPLICATES labels)
    set_tests_properties(${test} PROPERTIES LABELS "${program};${labels}")
    if("random-jobs" IN_LIST labels)
      set_tests_properties(${test} PROPERTIES COST 100)  # the longest test starts first
    elseif("long" IN_LIST labels)
      set_tests_properties(${test} PROPERTIES COST 10)
    endif()
  endforeach()
endforeach()
