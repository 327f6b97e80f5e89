# Fails when the library's machine code holds a fused multiply-add: arm64 fmadd/fmsub/fnmadd/
# fnmsub and the vector fmla/fmls, x86-64 vfmadd*/vfmsub*/vfnmadd*/vfnmsub*. A fused a*b+c rounds
# once where the other architecture rounds twice, so the boxes would stop agreeing between the
# device and the host. -ffp-contract=off keeps the compiler from fusing; this catches an
# intrinsic (vfmaq_f32, vmlaq_f32 through SIMDe on x86-64-v3) or a target that lost the flag.
execute_process(COMMAND ${ZY_OBJDUMP} -d --no-show-raw-insn ${ZY_LIBRARY}
                RESULT_VARIABLE rc OUTPUT_VARIABLE listing ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${ZY_OBJDUMP} failed (${rc}): ${err}")
endif()
string(REGEX MATCHALL "\n[ ]*[0-9a-f]+:[ \t]+(v?fn?m(add|sub)[0-9a-z]*|fml[as])[ \t.][^\n]*" found "${listing}")
list(LENGTH found n)
if(n GREATER 0)
  list(SUBLIST found 0 10 first)
  string(REPLACE ";" "" first "${first}")
  message(FATAL_ERROR "${n} fused multiply-add instructions in ${ZY_LIBRARY}, for example:${first}")
endif()
message(STATUS "no fused multiply-add in ${ZY_LIBRARY}")
