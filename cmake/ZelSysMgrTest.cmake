# zel_sysmgr_test(NAME name [BOARD option...] [SHARED_NETWORK] COMMAND program [argument...])
#
# Adds a test to ctest that runs a program, or an executable target of the project, beside a virtual board of its own: in a
# private network, so that such tests run in parallel and leave a daemon of the machine alone.
#
# BOARD           options of sysmgr-sim: --model ZIRC --fault-rule "do=late command=2"
# SHARED_NETWORK  where the system allows no private network: the board takes the ports of the machine, and such tests run
#                 one after the other
#
# Variables, for cmake -D:
# ZEL_SYSMGR_SIM                  the program sysmgr-sim
# ZEL_SYSMGR_TEST_SHARED_NETWORK  ON: every such test is as with SHARED_NETWORK
function(zel_sysmgr_test)
  cmake_parse_arguments(PARSE_ARGV 0 arg "SHARED_NETWORK" "NAME" "BOARD;COMMAND")
  if(NOT arg_NAME OR NOT arg_COMMAND OR arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "zel_sysmgr_test(NAME name [BOARD option...] [SHARED_NETWORK] COMMAND program [argument...])")
  endif()
  if(NOT ZEL_SYSMGR_SIM)
    message(FATAL_ERROR "zel_sysmgr_test: sysmgr-sim is not installed (Debian: sysmgr-sim), or ZEL_SYSMGR_SIM does not name it")
  endif()
  list(POP_FRONT arg_COMMAND program)
  if(TARGET "${program}")
    set(program "$<TARGET_FILE:${program}>")
  endif()
  set(network "")
  if(arg_SHARED_NETWORK OR ZEL_SYSMGR_TEST_SHARED_NETWORK)
    set(network --shared-network)
  endif()
  add_test(NAME "${arg_NAME}" COMMAND "${ZEL_SYSMGR_SIM}" run ${network} ${arg_BOARD} -- "${program}" ${arg_COMMAND})
  if(network)
    set_tests_properties("${arg_NAME}" PROPERTIES RESOURCE_LOCK sysmgr-ports)
  endif()
endfunction()
