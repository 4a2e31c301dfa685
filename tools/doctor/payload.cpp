// SPDX-License-Identifier: Apache-2.0
// How long a camera's frames are, asked through its producer by a process that only reads.
#include "doctor/hear_child.h"
#include "doctor/scene.h"

#include <cstdlib>
#include <exception>
#include <functional>
#include <unistd.h>

namespace nq::tool::doctor
{

namespace
{

uint64_t PayloadByReading(GenTLLibrary& library, Interface& interface, const std::string& cameraId)
{
    GenTL::DEV_HANDLE device = nullptr;
    GenTLLibrary::Check(interface.OpenCamera(cameraId, &device, GenTL::DEVICE_ACCESS_READONLY), "IFOpenDevice");
    const std::string id =
        GenTLLibrary::Id([&](char* text, size_t* size) { return library.DevGetDataStreamID(device, 0, text, size); },
                         "DevGetDataStreamID");
    GenTL::DS_HANDLE stream = nullptr;
    GenTLLibrary::Check(library.DevOpenDataStream(device, id.c_str(), &stream), "DevOpenDataStream");
    return GenTLLibrary::Number([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
               return library.DSGetInfo(stream, GenTL::STREAM_INFO_PAYLOAD_SIZE, type, buffer, size);
           })
        .value_or(0);
}

/// Runs `ask` and writes what it gives, or why it failed.
void Tell(int pipe, const std::function<uint64_t()>& ask)
{
    std::string answer;
    try
    {
        answer = std::to_string(ask());
    }
    catch (const std::exception& failure)
    {
        answer = failure.what();
    }
    static_cast<void>(write(pipe, answer.data(), answer.size()) == 0);
    _exit(0);
}

/// Ends the process while all is open: who closes a camera writes to it, also one that was opened for reading.
uint64_t AskAndEnd(const FoundCamera& found, int pipe)
{
    GenTLLibrary library(found.producer);
    const System system(library);
    Interface interface(system, found.camera.interfaceId);
    Tell(pipe, [&] { return PayloadByReading(library, interface, found.camera.id); });
    return 0;
}

} // namespace

std::optional<uint64_t> AskPayload(const FoundCamera& camera, std::string& why)
{
    constexpr std::chrono::seconds kLongestWait{8};
    const std::string heard = HearChild(
        [&](int pipe) {
            dup2(STDERR_FILENO, STDOUT_FILENO); // standard output is for what the doctor says
            Tell(pipe, [&] { return AskAndEnd(camera, pipe); });
        },
        kLongestWait);
    const uint64_t payload = std::strtoull(heard.c_str(), nullptr, 10);
    if (payload != 0)
    {
        return payload;
    }
    why = "the producer does not tell how long a frame is" + (heard.empty()  ? ": it crashed or hung"
                                                              : heard == "0" ? ""
                                                                             : ": " + heard);
    return std::nullopt;
}

} // namespace nq::tool::doctor
