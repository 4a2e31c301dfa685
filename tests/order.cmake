# SPDX-License-Identifier: Apache-2.0
# In which order CTest runs the cases. It reads this after it has found them all.

# Cases that take all cores for seconds have no other beside them: the waits of GVCP are hundreds of milliseconds, and a
# neighbour could miss them.
set_tests_properties(
  unit.DeviceModule.SixtyFiveThousandClaimedChannelsEndAtTheLimitOfGigEVision
  module.LyingCamera.SixtyFiveThousandChannelsOfEachKindAre512
  e2e.CpuStarved.LosesNoFrameAndKeepsTheCamera
  PROPERTIES RUN_SERIAL TRUE)

# Cases that wait for half a minute or more begin first, so that none is left alone at the end.
set_tests_properties(
  e2e.OutOfMemory.AtEachAllocationOfAStartFailsThatStartAlone
  e2e.StreamChaos.SpoilsNoFrameThatAConsumerHasAndLeavesAStreamThatWorks
  e2e.StandardStreamChaos.SpoilsNoFrameThatAConsumerHasAndLeavesAStreamThatWorks
  e2e.AnnouncedMemoryChaos.SpoilsNoFrameThatAConsumerHasAndLeavesAStreamThatWorks
  unit.OwnBlocksModel.RandomMovesFromSeveralThreadsKeepEveryCreditEveryAddressAndEveryFrame
  unit.FrameBlocksModel.RandomMovesFromSeveralThreadsKeepEveryCreditEveryAddressAndEveryFrame
  PROPERTIES COST 60)
