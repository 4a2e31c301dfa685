// SPDX-License-Identifier: Apache-2.0
// The register description of the data stream module's port.
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_data_stream_registers.h"
#include "gev/nq_gev_xml_writer.h"

namespace
{

constexpr std::string_view kPort = "StreamPort";

void AddCategories(NQGevXmlWriter& xml)
{
    xml.BeginGroup("RootCategory");
    xml.Add(NQGevXmlCategory{.name = "Root",
                             .nameSpace = "Standard",
                             .visibility = "Beginner",
                             .members = {"StreamInformation",
                                         "BufferHandlingControl",
                                         "ChannelStatistics",
                                         {"EventControl", NQGevXmlMember::StatedOnly}}});
    xml.EndGroup();
    xml.BeginGroup("SubCategories", false);
    xml.Add(
        NQGevXmlCategory{.name = "StreamInformation",
                         .nameSpace = "Standard",
                         .toolTip = "Category that contains all Stream Information features of the Data Stream module.",
                         .displayName = "Stream Information",
                         .visibility = "Expert",
                         .members = {"StreamID", "StreamType"}});
    xml.Add(NQGevXmlCategory{
        .name = "BufferHandlingControl",
        .nameSpace = "Standard",
        .toolTip = "Category that contains all Buffer Handling Control features of the Data Stream module.",
        .displayName = "Buffer Handling Control",
        .visibility = "Beginner",
        .members = {"StreamAnnouncedBufferCount",
                    "StreamBufferHandlingMode",
                    "StreamAnnounceBufferMinimum",
                    {"StreamDeliveredFrameCount", NQGevXmlMember::DisabledUnlessStandard},
                    {"StreamLostFrameCount", NQGevXmlMember::DisabledUnlessStandard},
                    {"StreamInputBufferCount", NQGevXmlMember::DisabledUnlessStandard},
                    {"StreamOutputBufferCount", NQGevXmlMember::DisabledUnlessStandard},
                    {"StreamStartedFrameCount", NQGevXmlMember::DisabledUnlessStandard},
                    {"PayloadSize", NQGevXmlMember::DisabledUnlessStandard},
                    {"StreamIsGrabbing", NQGevXmlMember::DisabledUnlessStandard},
                    {"StreamChunkCountMaximum", NQGevXmlMember::DisabledUnlessStandard},
                    {"StreamBufferAlignment", NQGevXmlMember::DisabledUnlessStandard}}});
    xml.Add(
        NQGevXmlCategory{.name = "ChannelStatistics",
                         .nameSpace = "Custom",
                         .toolTip = "Category that contains the counters of the stream channel.",
                         .displayName = "Channel Statistics",
                         .visibility = "Expert",
                         .members = {"FrameLoss", "FramesReceived", {"CopiedFrames", NQGevXmlMember::StandardOnly}}});
    if (!xml.IsStandard())
    {
        xml.Add(
            NQGevXmlCategory{.name = "EventControl",
                             .nameSpace = "Standard",
                             .toolTip = "Category that contains all Event Control features of the Data Stream module.",
                             .displayName = "Event Control",
                             .visibility = "Expert",
                             .members = {"EventSelector", "EventNotification"}});
    }
    xml.EndGroup();
}

NQGevXmlFeature Counter(std::string_view name, std::string_view nameSpace, std::string_view toolTip,
                        std::string_view description, std::string_view displayName, std::string_view reg)
{
    return {.type = "Integer",
            .name = name,
            .nameSpace = nameSpace,
            .toolTip = toolTip,
            .description = description,
            .displayName = displayName,
            .visibility = "Expert",
            .reg = reg};
}

void AddStreamInformation(NQGevXmlWriter& xml)
{
    xml.BeginGroup("StreamInformation");
    xml.Add(NQGevXmlFeature{.type = "String",
                            .name = "StreamID",
                            .nameSpace = "Standard",
                            .toolTip = "Device wide unique identifier of the data stream.",
                            .displayName = "Stream ID",
                            .visibility = "Expert",
                            .reg = "StreamID_Reg"});
    xml.Add(NQGevXmlFeature{.type = "Enumeration",
                            .name = "StreamType",
                            .nameSpace = "Standard",
                            .toolTip = "Identifies the transport layer technology of the stream.",
                            .displayName = "Stream Type",
                            .visibility = "Expert",
                            .imposedAccessMode = "RO",
                            .entries = NQGevXmlTransportEntries(),
                            .fixed = "0"});
    xml.EndGroup();
}

/// The standard's text names only the mode that there is.
std::vector<NQGevXmlEnumEntry> HandlingModes(bool standard)
{
    std::vector<NQGevXmlEnumEntry> modes = {
        {"OldestFirst", "Buffers are delivered in the order they were filled, none is overwritten.", "Oldest First",
         "0"},
        {"OldestFirstOverwrite", "Buffers are delivered in the order they were filled, the oldest may be overwritten.",
         "Oldest First Overwrite", "1"},
        {"NewestOnly", "Only the buffer filled last is delivered.", "Newest Only", "2"}};
    modes.resize(standard ? 1 : modes.size());
    return modes;
}

/// What the library's own text leaves out.
void AddStandardCounts(NQGevXmlWriter& xml)
{
    const auto add = [&xml](std::string_view name, std::string_view text, std::string_view displayName,
                            std::string_view reg) { xml.Add(Counter(name, "Standard", text, "", displayName, reg)); };
    add("StreamLostFrameCount", "Number of frames lost because no buffer was queued.", "Stream Lost Frame Count",
        "StreamLostFrameCount_Reg");
    add("StreamInputBufferCount", "Number of buffers in the input pool and of those being filled.",
        "Stream Input Buffer Count", "StreamInputBufferCount_Reg");
    add("StreamOutputBufferCount", "Number of buffers in the output queue.", "Stream Output Buffer Count",
        "StreamOutputBufferCount_Reg");
    add("StreamStartedFrameCount", "Number of frames that began to be written to a buffer.",
        "Stream Started Frame Count", "StreamStartedFrameCount_Reg");
    add("PayloadSize", "Size of the payload of a frame in bytes.", "Payload Size", "PayloadSize_Reg");
    xml.Add(NQGevXmlFeature{.type = "Boolean",
                            .name = "StreamIsGrabbing",
                            .nameSpace = "Standard",
                            .toolTip = "Whether the acquisition engine is started.",
                            .displayName = "Stream Is Grabbing",
                            .visibility = "Expert",
                            .reg = "StreamIsGrabbing_Reg"});
    add("StreamChunkCountMaximum", "Maximum number of chunks in a buffer.", "Stream Chunk Count Maximum",
        "StreamChunkCountMaximum_Reg");
    add("StreamBufferAlignment", "Alignment of buffers in bytes.", "Stream Buffer Alignment",
        "StreamBufferAlignment_Reg");
}

void AddBufferHandling(NQGevXmlWriter& xml)
{
    xml.BeginGroup("BufferHandlingControl");
    xml.Add(Counter("StreamAnnouncedBufferCount", "Standard", "Number of announced (known) buffers on this stream.", "",
                    "Stream Announced Buffer Count", "StreamAnnouncedBufferCount_Reg"));
    xml.Add(NQGevXmlFeature{.type = "Enumeration",
                            .name = "StreamBufferHandlingMode",
                            .nameSpace = "Standard",
                            .toolTip = "Available buffer handling modes of this stream.",
                            .displayName = "Stream Buffer Handling Mode",
                            .visibility = "Beginner",
                            .imposedAccessMode = "RO",
                            .entries = HandlingModes(xml.IsStandard()),
                            .reg = "StreamBufferHandlingMode_Reg"});
    xml.Add(Counter("StreamAnnounceBufferMinimum", "Standard",
                    "Minimum number of buffers to announce to enable this stream.", "",
                    "Stream Announce Buffer Minimum", "StreamAnnounceBufferMinimum_Reg"));
    xml.DisableUnlessStandard(Counter("StreamDeliveredFrameCount", "Standard",
                                      "Number of frames delivered since acquisition start.", "",
                                      "Stream Delivered Frame Count", "StreamDeliveredFrameCount_Reg"));
    if (xml.IsStandard())
    {
        AddStandardCounts(xml);
    }
    xml.EndGroup();
}

void AddStatistics(NQGevXmlWriter& xml)
{
    xml.BeginGroup("ChannelStatistics");
    xml.Add(Counter("FrameLoss", "Custom", "Number of frames that have been lost since last acquisition start.", "",
                    "Frame Loss", "FrameLoss_Reg"));
    // Deliberate(ToolTipOfTheBuffers): the tool tip is that of the announced buffers: the text stays the same byte for
    // byte, and the description says what is counted.
    xml.Add(Counter("FramesReceived", "Custom",
                    xml.IsStandard() ? "Number of frames that have been received since last acquisition start."
                                     : "Number of announced (known) buffers on this stream.",
                    "the number of frames that have been received since last acquisition start.", "Frames Received",
                    "FramesReceived_Reg"));
    if (xml.IsStandard())
    {
        xml.Add(Counter("CopiedFrames", "Custom",
                        "Number of frames that were copied into their buffers since last acquisition start.",
                        "the number of frames that could not be received in the memory of their buffers.",
                        "Copied Frames", "CopiedFrames_Reg"));
    }
    xml.EndGroup();
}

void AddEventControl(NQGevXmlWriter& xml)
{
    xml.BeginGroup("EventControl");
    xml.Add(NQGevXmlFeature{
        .type = "Enumeration",
        .name = "EventSelector",
        .nameSpace = "Custom",
        .toolTip = "Selects which event to signal to the consumer.",
        .displayName = "Event Selector",
        .visibility = "Expert",
        .entries = {{"EventFrameStartOfTransfer", "The transfer of a frame began.", "Frame Start Of Transfer", "0"},
                    {"EventFrameCompleted", "A frame arrived whole.", "Frame Completed", "1"},
                    {"EventFrameIncomplete", "A frame arrived with data missing.", "Frame Incomplete", "2"},
                    // Deliberate(FrameAbondoned): spelled so: an entry is selected by its name, and a name that others
                    // may have stored is not changed.
                    {"EventFrameAbondoned", "A frame was given up.", "Frame Abandoned", "3"}},
        .reg = "EventSelector_reg",
        .selected = {"EventNotification"}});
    xml.Add(NQGevXmlFeature{
        .type = "Enumeration",
        .name = "EventNotification",
        .nameSpace = "Custom",
        .toolTip = "Activates or deactivates the notification of the selected event.",
        .displayName = "Event Notification",
        .visibility = "Expert",
        .entries = {{"Off", "The event is not signalled.", "", "0"}, {"On", "The event is signalled.", "", "1"}},
        .reg = "EventNotification_reg"});
    xml.EndGroup();
}

void AddPolled(NQGevXmlWriter& xml, const NQGevRegister& row)
{
    xml.AddInteger({.row = row, .port = kPort, .cachable = "NoCache", .pollingTime = "1000"});
}

/// One that the port does not serve: it lies just above the description itself.
void AddEventRegister(NQGevXmlWriter& xml, const NQGevRegister& row)
{
    xml.AddInteger({.row = row, .port = kPort, .cachable = "NoCache", .endianess = "BigEndian"});
}

void AddStandardRegisters(NQGevXmlWriter& xml)
{
    AddPolled(xml, kDataStreamRegisters["StreamLostFrameCount_Reg"]);
    AddPolled(xml, kDataStreamRegisters["StreamInputBufferCount_Reg"]);
    AddPolled(xml, kDataStreamRegisters["StreamOutputBufferCount_Reg"]);
    AddPolled(xml, kDataStreamRegisters["StreamStartedFrameCount_Reg"]);
    AddPolled(xml, kDataStreamRegisters["PayloadSize_Reg"]);
    AddPolled(xml, kDataStreamRegisters["StreamIsGrabbing_Reg"]);
    AddPolled(xml, kDataStreamRegisters["StreamChunkCountMaximum_Reg"]);
    AddPolled(xml, kDataStreamRegisters["StreamBufferAlignment_Reg"]);
}

void AddRegisters(NQGevXmlWriter& xml)
{
    // Deliberate(EventRegistersAboveTheText): the two event registers lie just above the description itself and are
    // big-endian, unlike all others: they have the form of a camera's registers, and no port serves them.
    if (!xml.IsStandard())
    {
        xml.BeginGroup("EventControl Register");
        AddEventRegister(xml, kDataStreamRegisters["EventSelector_reg"]);
        AddEventRegister(xml, kDataStreamRegisters["EventNotification_reg"]);
        xml.EndGroup();
    }
    // Deliberate(OneCommentForThreeGroups): all three groups of stream registers carry the same comment. It is for
    // people only: a node is found by its name, whatever group it stands in.
    xml.BeginGroup("StreamInformation Registers");
    xml.AddString({kDataStreamRegisters["StreamID_Reg"], kPort});
    xml.EndGroup();
    xml.BeginGroup("StreamInformation Registers");
    AddPolled(xml, kDataStreamRegisters["StreamAnnouncedBufferCount_Reg"]);
    xml.AddInteger({kDataStreamRegisters["StreamBufferHandlingMode_Reg"], kPort});
    xml.AddInteger({kDataStreamRegisters["StreamAnnounceBufferMinimum_Reg"], kPort, "", "Invisible"});
    // Deliberate(RegisterWithoutAFeature): no feature shows this register; its feature is disabled.
    AddPolled(xml, kDataStreamRegisters["StreamDeliveredFrameCount_Reg"]);
    if (xml.IsStandard())
    {
        AddStandardRegisters(xml);
    }
    xml.EndGroup();
    xml.BeginGroup("StreamInformation Registers");
    AddPolled(xml, kDataStreamRegisters["FrameLoss_Reg"]);
    AddPolled(xml, kDataStreamRegisters["FramesReceived_Reg"]);
    if (xml.IsStandard())
    {
        AddPolled(xml, kDataStreamRegisters["CopiedFrames_Reg"]);
    }
    xml.EndGroup();
}

std::string Create(const NQGevXmlEdition& edition)
{
    NQGevXmlWriter xml("NQGenTLGev", "Data Stream RegisterMap", edition);
    AddCategories(xml);
    AddStreamInformation(xml);
    AddBufferHandling(xml);
    AddStatistics(xml);
    if (!xml.IsStandard())
    {
        AddEventControl(xml);
    }
    AddRegisters(xml);
    return xml.Finish({{.name = kPort, .displayName = "Stream Port", .imposedAccessMode = "RW"}});
}

} // namespace

std::string CreateXmlFileDataStream()
{
    return Create({});
}

std::string CreateStandardXmlFileDataStream()
{
    return Create({.text = NQGevText::Standard,
                   .productGuid = "9F3E95A9-11B9-4471-A687-EE9B55C28B2F",
                   .versionGuid = "993E3E6E-272A-41D0-8A65-FF187B4E31B5"});
}
