# SPDX-License-Identifier: Apache-2.0
# Cases that take all cores for seconds. CTest reads this after it has found all cases, and runs these with no other
# beside them: the waits of GVCP are hundreds of milliseconds, and a neighbour could miss them.
set_tests_properties(
  unit.DeviceModule.SixtyFiveThousandClaimedChannelsEndAtTheLimitOfGigEVision
  module.LyingCamera.SixtyFiveThousandChannelsOfEachKindAre512
  e2e.CpuStarved.LosesNoFrameAndKeepsTheCamera
  e2e.StreamChaos.SpoilsNoFrameThatAConsumerHasAndLeavesAStreamThatWorks
  PROPERTIES RUN_SERIAL TRUE)
