// SPDX-License-Identifier: Apache-2.0
// Which answers a session of the library gives: its own, as the hosts written for it know them, or the standard's.
#pragma once

// clang-format off

/// The one list of the answers that differ: a flag, the subject, the library's own answer, the standard's. The record
/// below, the two sets of it and docs/standard-answers.md follow from it. One row a line, in the order of the document.
#define NQ_ANSWER_ROWS(row)                                                                                            \
    row(infoWritesValueOnly, "info calls", "clear `*size` bytes first", "write the value's bytes and no more") \
    row(incompleteOfFrame, "`IS_INCOMPLETE`", "stays set for the buffer's life", "tells of the frame in the buffer") \
    row(timestampInHertz, "timestamp frequency", "bytes turned round", "the camera's number; `TIMESTAMP_NS` given, both not available where it is 0 or unreadable") \
    row(frameInfos, "`DATA_SIZE`, `XOFFSET`, `YOFFSET`, `XPADDING`, `YPADDING`, `IMAGEOFFSET`, `PIXELFORMAT_NAMESPACE`, `DELIVERED_IMAGEHEIGHT`, `PIXEL_ENDIANNESS`, `DATA_LARGER_THAN_BUFFER`", "not implemented", "given") \
    row(sizeFilledIsWritten, "`SIZE_FILLED`", "the frame's size, also in a buffer too small for it", "what was written, 0 while queued; a buffer too small is incomplete") \
    row(ownMemory, "library-allocated buffer before its first frame", "null base", "its memory, the same from announce to revoke") \
    row(queueingPosts, "buffers queued after the start, flushed, revoked while running", "their blocks may be lost", "no block is ever lost; the camera waits when nothing is queued") \
    row(streamInfos, "`IS_GRABBING`, `NUM_STARTED`, `NUM_CHUNKS_MAX`, `BUF_ALIGNMENT`, `NUM_UNDERRUN`, unknown commands of `DSGetInfo`", "false; not implemented; begins anew with each start; -1001", "as the standard has them: -1003 for an unknown command, `NUM_UNDERRUN` from open to close") \
    row(limitEndsWithLast, "limited acquisition", "ends with frame N+1", "ends with frame N; the stop that is due then succeeds") \
    row(idleStopAtOnce, "default stop before the first frame", "3000 ms", "at once") \
    row(flushQueuesOnce, "flush to the input", "may list a buffer twice", "once, as `DSQueueBuffer` does") \
    row(newDataOfFrame, "`NEW_DATA`", "stays set when a buffer is queued again", "false until the next frame is in the buffer") \
    row(openEndsWithAnswer, "open by id on a fresh interface", "waits 2 s and fills the device list", "returns when the camera has answered; the list stays as it was") \
    row(boundedScans, "scans with a timeout of more than a minute, an infinite one too", "take as long", "one scan of 1 s") \
    row(probeOneCamera, "access probe", "any datagram of the interface's socket is the answer", "only the camera asked, with the id sent") \
    row(statusOfEach, "access status of several cameras", "one for the process; held by another: `READONLY` or `NOACCESS`", "each its own; held by another: `BUSY`") \
    row(exclusiveGoesOn, "exclusive open", "heartbeat ends at its first beat; status `NOACCESS`", "goes on; `OPEN_READWRITE`") \
    row(readOnlyBeats, "read-only open", "reads without a pause; status as the privilege register says", "a beat a second; `OPEN_READONLY`") \
    row(startNeedsControl, "start without control of the camera", "succeeds, no frame", "`GC_ERR_ACCESS_DENIED`") \
    row(payloadMustFit, "payload over the port's longest message", "starts, nothing comes", "the start fails with `GC_ERR_RESOURCE_EXHAUSTED`") \
    row(adaptersRefreshed, "adapter whose address changed", "the entry keeps the old one", "refreshed, `changed` true") \
    row(eventBytesWritten, "records by `EventGetData`", "`*piSize` as it was", "bytes written") \
    row(errorSizeTold, "`GCGetLastError` with a small buffer", "no size told", "needed size told") \
    row(killEndsOneWait, "`EventKill`", "with nobody waiting ends every wait until a flush; several at once are one", "each ends one wait, the next one if nobody waits, before any data") \
    row(waitersEnd, "unregister, close", "waiters may sleep on", "waiters end with `GC_ERR_ABORT`") \
    row(closeEndsStream, "`DSClose`", "handle stays valid, nothing flushed", "ends the handle, its events and its buffers") \
    row(nodeMaps, "node maps of the four modules", "6 of 64 features fail, 11 read wrong values, a command does nothing, no text validates", "a second text for each module; a value beyond a list is refused, a selection that is not there is not available") \
    row(lossOfGaps, "register `FrameLoss` of the stream", "goes down when frame ids run backwards, gaps count nothing", "how many ids are missing between frames") \
    row(portRanges, "module ports", "exact start addresses, whole texts; bytes behind a value as the caller had them", "any range inside a register or the text, filled up with zeros") \
    row(cameraPort, "port of the remote device", "every refusal of the camera is `GC_ERR_IO`; no address but multiples of 4; a write of other sizes takes bytes behind the caller's", "refusals of the camera by their own codes; any address and size, by wider reads and read-modify-write; a write when opened read-only is `GC_ERR_ACCESS_DENIED`, nothing sent") \
    row(oneStreamId, "`STREAM_INFO_ID`", "`0`, of the stream that was opened as `Stream:0`", "the id that it was opened with") \
    row(payloadIsSize, "type of `STREAM_INFO_PAYLOAD_SIZE`", "`INT64`", "`SIZET`") \
    row(nameOfFile, "`TL_INFO_NAME`", "`nq_gev_tl_rdma.cti`, whatever the file is called", "the name of the file, with which `TL_INFO_PATHNAME` ends") \
    row(firedCounted, "`EVENT_NUM_FIRED`", "not implemented", "what was queued since the registration, delivered or flushed since or not") \
    row(stackTellsDone, "number of a stack of port accesses that fails", "as it was", "how many were done") \
    row(lostEndsWaits, "camera lost while streaming", "waiters sleep on", "each waiter ends once with `GC_ERR_ABORT` within two heartbeats") \
    row(closedIsInvalid, "close of a module that is closed, as a second `TLClose`", "`GC_ERR_ERROR`", "`GC_ERR_INVALID_HANDLE`") \
    row(startFlagsChecked, "flags of `DSStartAcquisition`", "not read", "other than the default: `GC_ERR_NOT_IMPLEMENTED`") \
    row(startNeedsBuffers, "start with nothing announced", "succeeds, no frame", "`GC_ERR_INVALID_BUFFER`") \
    row(noDataIsParameter, "`EventGetDataInfo` without data", "`GC_ERR_INVALID_HANDLE`", "`GC_ERR_INVALID_PARAMETER`") \
    row(portIdOfModule, "`PORT_INFO_ID`", "that of the library, of every port", "the id of the module; of the remote device that of the device") \
    row(interfaceListStays, "`TLOpenInterface` of an id that is not listed", "fills the list of interfaces", "the list stays as it was") \
    row(queuedIsComplete, "`IS_INCOMPLETE` of a buffer that is queued again", "as it was", "false until its next frame") \
    row(underrunsOfGaps, "ids that the camera skips while nothing is queued", "no underruns", "underruns, counted with the frame behind them") \
    row(awaitingIsBusy, "`DSRevokeBuffer` of a buffer in the output queue", "succeeds, its event goes", "`GC_ERR_BUSY`") \
    row(announcedInPlace, "frames for announced buffers", "received in a block and copied; headers are read however little of them came", "received in the buffers; headers are read as far as they came")

// clang-format on

/// One flag for each row, true for the standard's answer. The place where an answer differs asks its own flag and
/// nothing else. Only the two sets below exist outside of tests; they never change, so any thread may read them.
struct NQAnswers
{
#define NQ_ANSWER_FLAG(flag, subject, stated, standard) bool flag = false;
    NQ_ANSWER_ROWS(NQ_ANSWER_FLAG)
#undef NQ_ANSWER_FLAG
};

/// The library's own answers.
inline constexpr NQAnswers kStatedAnswers{};

/// The standard's, in all rows.
#define NQ_ANSWER_TRUE(flag, subject, stated, standard) .flag = true,
inline constexpr NQAnswers kStandardAnswers{NQ_ANSWER_ROWS(NQ_ANSWER_TRUE)};
#undef NQ_ANSWER_TRUE

/// The standard's answers where the environment says NQ_GEV_TL_STANDARD=1, exactly so, else the library's own; in a
/// program that runs with more rights than its user always the latter. Not to be called while another thread changes
/// the environment.
const NQAnswers& AnswersAskedFor();
