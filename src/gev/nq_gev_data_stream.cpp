// SPDX-License-Identifier: Apache-2.0
// Start, stop and delivery of the RDMA data stream.
#include "gev/nq_gev_data_stream.h"

#include "GenTL/GenTL.h"
#include "base/nq_answers.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_remote_device.h"
#include "gev/nq_rdma_thread_acquisition.h"
#include "gige/gvcp_wire.h"
#include "rdma/GenDCBuffer.h"
#include "rdma/gendc_wire.h"
#include "rdma/tld_RdmaTL.h"

#include <arpa/inet.h>
#include <bit>
#include <exception>
#include <utility>

namespace
{

constexpr std::uint32_t kMtuValue = 9000;

/// The camera's address as dotted decimal.
std::string AddressText(const NQGevRemoteDevice& device)
{
    char text[INET_ADDRSTRLEN] = {};
    in_addr address{};
    address.s_addr = htonl(device.GetDeviceInfo().ipAddress);
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

} // namespace

NQGevDataStream::NQGevDataStream(NQGevRemoteDevice* device, unsigned int index, GigERDMA::NQGenTLModuleBase* parent)
    : NQGenTLDataStream(index, parent), m_device(device), m_index(index),
      m_thread(std::make_unique<NQRMAXThreadAcquisition>(this))
{
}

NQGevDataStream::~NQGevDataStream()
{
    if (m_device != nullptr)
    {
        m_device->ForgetStream(this);
    }
    NQGevDataStream::DoClose();
    // A stream that was opened while it ran does not count as started, so DoClose has not stopped it. Its thread waits
    // for a frame until the connection goes.
    m_thread->Stop();
    if (const std::shared_ptr<GevRdmaEndpoint> endpoint = Rdma())
    {
        endpoint->Disconnect();
    }
    m_thread->WaitForEnd();
    SetRdma(nullptr);
    m_thread.reset();
}

bool NQGevDataStream::IsPortImplemented()
{
    return true;
}

bool NQGevDataStream::IsEventImplemented(int type)
{
    return type == GenTL::EVENT_NEW_BUFFER || type == GenTL::EVENT_MODULE;
}

GigERDMA::_NQ_GENTL_PORT_INFO NQGevDataStream::GetPortInfo()
{
    return NQGevPortInfo("TLDataStream", "StreamPort");
}

GigERDMA::_NQ_GENTL_XML_INFO NQGevDataStream::GetXMLInfo()
{
    return Answers().nodeMaps ? NQGevXmlInfo(kStandardXmlFileNameDataStream, CreateStandardXmlFileDataStream())
                              : NQGevXmlInfo(g_XmlFileNameDataStream, CreateXmlFileDataStream());
}

std::vector<std::string> NQGevDataStream::GetURLList()
{
    return NQGevUrlList(GetXMLInfo());
}

std::string NQGevDataStream::GetId()
{
    return "Stream:" + std::to_string(m_index);
}

int NQGevDataStream::DoOpen()
{
    _NQ_STREAM_CAPABILITY capability{};
    if (m_device == nullptr || !m_device->GetStreachannelCapability(&capability))
    {
        return GenTL::GC_ERR_ERROR;
    }
    if ((std::bit_cast<unsigned int>(capability) & gvcp_wire::kRdmaSupported) == 0)
    {
        return GenTL::GC_ERR_NOT_AVAILABLE;
    }
    NQGenTLDataStream::DoOpen();
    if (Answers().lostEndsWaits)
    {
        m_device->AddStream(this);
    }
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevDataStream::DoClose()
{
    EndStarts();
    NQGenTLDataStream::DoClose();
    return GenTL::GC_ERR_SUCCESS;
}

/// Ends the starts that other threads have under way, and waits until they have left.
void NQGevDataStream::EndStarts()
{
    ++m_closing;
    if (!m_connected)
    {
        if (const std::shared_ptr<GevRdmaEndpoint> endpoint = Rdma())
        {
            endpoint->Disconnect();
        }
    }
    WaitForStarts();
    --m_closing;
}

int NQGevDataStream::DoStartAcquisition(unsigned int, unsigned int)
{
    NQTrace(NQTraceLevel::Failure, "%s ENTER", "DoStartAcquisition");
    if (m_device == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_ERROR, "%s GC_ERR_ERROR", "DoStartAcquisition");
    }
    if (m_connected)
    {
        return NQFailed(GenTL::GC_ERR_RESOURCE_IN_USE, "%s GC_ERR_RESOURCE_IN_USE", "DoStartAcquisition");
    }
    if (const int refused = Answers().startNeedsControl ? m_device->CheckControl() : 0)
    {
        return NQFailed(refused, "%s no control, ret:%d", "DoStartAcquisition", refused);
    }
    m_mtu = kMtuValue;
    EndLastRun();
    m_tickFrequency = Answers().timestampInHertz ? m_device->GetTickFrequency() : 0;
    if (!Connect())
    {
        return GenTL::GC_ERR_ERROR;
    }
    if (const int error = StartFlow())
    {
        return error;
    }
    m_reservedCount = 0;
    m_frameLoss = 0;
    m_framesReceived = 0;
    m_nextFrameId = 0;
    StartThread();
    m_connected = true;
    return GenTL::GC_ERR_SUCCESS;
}

void NQGevDataStream::EndLastRun()
{
    // The thread of the last run may still be on its way out of the endpoint, or of a delivery.
    m_thread->WaitForEnd();
    ForgetLastRun();
    if (const std::shared_ptr<GevRdmaEndpoint> endpoint = Rdma())
    {
        m_device->EnableStream(false);
        endpoint->Disconnect();
        SetRdma(nullptr);
    }
}

bool NQGevDataStream::Connect()
{
    const auto endpoint =
        std::make_shared<GevRdmaEndpoint>(Answers().queueingPosts ? FrameMemory::Buffers : FrameMemory::Blocks);
    SetRdma(endpoint);
    const std::string address = AddressText(*m_device);
    m_device->EnableStream(false);
    if (m_closing != 0 || !endpoint->Connect(address.c_str(), gendc_wire::kPort))
    {
        // The endpoint stays for the next start to remove.
        NQTrace(NQTraceLevel::Failure, "%s m_pRdma->ConnectR Failed   CamAddr: %s", "DoStartAcquisition",
                address.c_str());
        return false;
    }
    return true;
}

int NQGevDataStream::StartFlow()
{
    gevrdmaBufferSettings settings{};
    m_device->GetBufferSettings(&settings);
    if (Answers().payloadMustFit && !Rdma()->CanReceive(settings.payloadSize))
    {
        SetRdma(nullptr);
        return NQFailed(GenTL::GC_ERR_RESOURCE_EXHAUSTED, "%s the port receives no frame with a payload of %llu",
                        "DoStartAcquisition", static_cast<unsigned long long>(settings.payloadSize));
    }
    int type = 0;
    std::uint64_t announced = 0;
    unsigned long size = sizeof announced;
    GetInfo(GenTL::STREAM_INFO_NUM_ANNOUNCED, &type, &announced, &size);
    const bool ownBlocks = Answers().queueingPosts;
    settings.bufferCount = ownBlocks ? 0 : static_cast<std::uint32_t>(announced);
    m_payload = settings.payloadSize;

    // Deliberate(StreamsBeforeRegistration): the camera streams before any memory is registered; it sends nothing
    // before the first ready message.
    m_device->EnableStream(true);
    if (!Rdma()->Start(settings, 0) || (ownBlocks && !Rdma()->BeginReceives()))
    {
        m_device->EnableStream(false);
        SetRdma(nullptr);
        return NQFailed(GenTL::GC_ERR_ERROR, "%s Start RDMA Failed", "DoStartAcquisition");
    }
    return GenTL::GC_ERR_SUCCESS;
}

void NQGevDataStream::StartThread()
{
    m_thread = std::make_unique<NQRMAXThreadAcquisition>(this);
    m_thread->Start();
}

int NQGevDataStream::DoStopAcquisition(int)
{
    // Deliberate(StopLineIsNoFailure): the text reports nothing wrong; it marks every entry, beside the line of the
    // stop that led here.
    NQTrace(NQTraceLevel::Failure, "%s GC_ERR_NOT_IMPLEMENTED Enter:", "DoStopAcquisition");
    if (m_device == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_ERROR, "%s GC_ERR_ERROR", "DoStopAcquisition");
    }
    const std::shared_ptr<GevRdmaEndpoint> endpoint = Rdma();
    if (endpoint == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_ERROR, "%s GC_ERR_ERROR RDMA not initialized", "DoStopAcquisition");
    }
    m_device->EnableStream(false);
    if (m_thread != nullptr)
    {
        m_thread->Stop();
    }
    endpoint->Disconnect();
    m_connected = false;
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevDataStream::DoRequeueBuffer(void* rdmaId)
{
    GevRdmaEndpoint* const endpoint = m_flow;
    if (rdmaId == nullptr || endpoint == nullptr)
    {
        return GenTL::GC_ERR_ERROR;
    }
    const bool given = Answers().queueingPosts ? endpoint->PostReceive(rdmaId) : endpoint->RequeueBufferByID(rdmaId);
    return given ? GenTL::GC_ERR_SUCCESS : GenTL::GC_ERR_ERROR;
}

std::shared_ptr<const void> NQGevDataStream::DoHandOver(void* rdmaId, const GigERDMA::NQGenTLBuffer* shownBy)
{
    GevRdmaEndpoint* const endpoint = m_flow;
    return endpoint != nullptr ? endpoint->HandOver(rdmaId, shownBy) : nullptr;
}

void NQGevDataStream::DoEndShow(void* rdmaId, const GigERDMA::NQGenTLBuffer* shownBy)
{
    if (GevRdmaEndpoint* const endpoint = m_flow)
    {
        endpoint->EndShow(rdmaId, shownBy);
    }
}

GigERDMA::NQBlockMemory NQGevDataStream::DoMakeMemory(unsigned long size)
{
    try
    {
        const auto block = std::make_shared<GenDCBuffer>(size);
        return {block->GetBuffer() + gendc_wire::kDescriptorSize, block};
    }
    catch (const std::exception&) // more than a block can have, or than there is
    {
        return {};
    }
}

void* NQGevDataStream::DoRegisterBuffer(GigERDMA::NQGenTLBuffer& buffer)
{
    const std::shared_ptr<GevRdmaEndpoint> endpoint = Rdma();
    if (endpoint == nullptr)
    {
        return nullptr;
    }
    try
    {
        if (void* const id = RegisterMemory(*endpoint, buffer))
        {
            return id;
        }
        // Frames come into a block of ours and are copied from there.
        const auto block = std::make_shared<GenDCBuffer>(m_payload);
        return endpoint->AddReceive(block->GetBuffer(), block->GetBufferSize(), block);
    }
    catch (const std::exception&) // no memory for it
    {
        return nullptr;
    }
}

/// Lets frames come into the buffer's own memory, of which the camera gets as much as a frame's payload. Null for a
/// buffer that is too small for one, and for memory that the system does not register.
void* NQGevDataStream::RegisterMemory(GevRdmaEndpoint& endpoint, GigERDMA::NQGenTLBuffer& buffer)
{
    if (buffer.GetSize() < m_payload)
    {
        return nullptr;
    }
    auto* const memory = static_cast<unsigned char*>(buffer.GetData());
    const auto payload = static_cast<std::uint32_t>(m_payload);
    if (buffer.HasOwnBlock())
    {
        const auto headers = static_cast<std::uint32_t>(gendc_wire::kDescriptorSize);
        return endpoint.AddReceive(memory - headers, headers + payload, buffer.GetMemory());
    }
    return Answers().announcedInPlace && memory != nullptr
               ? endpoint.AddReceiveBehindHeaders(memory, payload, buffer.GetSize())
               : nullptr;
}

void NQGevDataStream::DoForgetBuffer(void* rdmaId)
{
    if (const std::shared_ptr<GevRdmaEndpoint> endpoint = Rdma())
    {
        endpoint->RemoveReceive(rdmaId);
    }
}

int NQGevDataStream::DoGetPayloadsize(int* piType, void* pBuffer, unsigned long* piSize)
{
    gevrdmaBufferSettings settings{};
    if (m_device != nullptr)
    {
        m_device->GetBufferSettings(&settings);
    }
    return Answers().payloadIsSize
               ? NQGenTLUtil::CopyInfoSizeT(settings.payloadSize, piType, pBuffer, piSize)
               : NQGenTLUtil::CopyInfoInt64(static_cast<long>(settings.payloadSize), piType, pBuffer, piSize);
}

int NQGevDataStream::AcquireImage()
{
    m_frame = {};
    gevrdmaBuffer buffer{};
    GevRdmaEndpoint* const endpoint = m_flow;
    void* dropped = nullptr;
    FrameRegion region{};
    if (endpoint == nullptr || !endpoint->GetNextFrame(&m_frame, &buffer, &dropped, &region))
    {
        if (Answers().queueingPosts && dropped != nullptr)
        {
            DropFrame(dropped);
        }
        SetTransferCompleted();
        return GenTL::GC_ERR_ERROR;
    }
    const int status = buffer.size != buffer.received ? 1 : 0;
    StartOfTransfer();
    DescribeFrame(region);
    EndOfTransfer(buffer.id, m_frame.dataSize, m_frame.frameId, m_frame.timestamp, m_frame.width, m_frame.height,
                  m_frame.pixelFormat, m_frame.data, status);
    ++m_framesReceived;
    CountFrame(m_frame.frameId);
    return GenTL::GC_ERR_SUCCESS;
}

void NQGevDataStream::DescribeFrame(const FrameRegion& region)
{
    GigERDMA::NQFrameDetails details;
    details.received = region.received;
    details.xOffset = region.x;
    details.yOffset = region.y;
    details.xPadding = region.xPadding;
    details.yPadding = region.yPadding;
    details.tickFrequency = m_tickFrequency;
    details.front = region.front;
    details.frontSize = region.frontSize;
    SetFrameDetails(details);
}

bool NQGevDataStream::IsFlowing()
{
    GevRdmaEndpoint* const endpoint = m_flow;
    return endpoint != nullptr && endpoint->IsFlowing();
}

void NQGevDataStream::CountFrame(std::uint64_t frameId)
{
    const std::uint64_t expected = m_nextFrameId;
    if (Answers().lossOfGaps)
    {
        // There is no gap before the first frame of a run; a count that runs backwards has begun anew.
        if (m_framesReceived > 1 && frameId > expected)
        {
            m_frameLoss += frameId - expected;
        }
        m_nextFrameId = frameId + 1;
        return;
    }
    if (frameId < expected)
    {
        // Deliberate(FrameLossRunsBackwards): only an id that runs backwards moves the counter, downwards and modulo 2
        // to the 64, for that is a fault of the camera's count. A jump forward counts nothing: a camera without credit
        // skips frames in good order.
        m_frameLoss += frameId - expected;
    }
    else
    {
        m_nextFrameId = frameId + 1;
    }
}

std::shared_ptr<GevRdmaEndpoint> NQGevDataStream::Rdma()
{
    const NQLock lock(m_rdmaLock);
    return m_pRdma;
}

void NQGevDataStream::SetRdma(std::shared_ptr<GevRdmaEndpoint> endpoint)
{
    {
        const NQLock lock(m_rdmaLock);
        m_flow = endpoint.get();
        m_pRdma.swap(endpoint);
    }
    // The endpoint that was there goes here, outside the lock: its teardown may take as long as its threads sleep.
}
