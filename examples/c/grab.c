// SPDX-License-Identifier: Apache-2.0
// Ten pictures of the first camera by plain dlopen, the last one as a PGM file: grab PRODUCER.cti [FILE.pgm]
#include "GenTL/GenTL.h"

#include <dlfcn.h>
#include <inttypes.h>
#include <stdbool.h>
#include <stdio.h>

// What this program calls. GenTL.h declares them too, so each is a member of a record here.
// clang-format off
#define FUNCTIONS(X) \
    X(GCInitLib) X(GCCloseLib) X(GCGetLastError) X(GCRegisterEvent) X(GCUnregisterEvent) X(EventGetData) \
    X(TLOpen) X(TLClose) X(TLUpdateInterfaceList) X(TLGetNumInterfaces) X(TLGetInterfaceID) X(TLOpenInterface) \
    X(IFClose) X(IFUpdateDeviceList) X(IFGetNumDevices) X(IFGetDeviceID) X(IFOpenDevice) \
    X(DevClose) X(DevGetDataStreamID) X(DevOpenDataStream) \
    X(DSClose) X(DSGetInfo) X(DSAllocAndAnnounceBuffer) X(DSQueueBuffer) X(DSGetBufferInfo) X(DSStartAcquisition) \
    X(DSStopAcquisition) X(DSFlushQueue) X(DSRevokeBuffer)
// clang-format on
#define MEMBER(name) P##name name;
static struct
{
    FUNCTIONS(MEMBER)
} gentl;

enum
{
    PICTURES = 10,
    BUFFERS = 4,
    SCAN_MS = 1000,
    FRAME_MS = 10000,
    ID_BYTES = 256
};
static const uint64_t MONO8 = 0x01080001;

static TL_HANDLE tl;
static IF_HANDLE interface;
static DEV_HANDLE device;
static DS_HANDLE stream;
static EVENT_HANDLE new_buffer;
static BUFFER_HANDLE buffers[BUFFERS];

/* Whether a call succeeded; if not, it is told with the producer's reason. */
static bool succeeded(GC_ERROR code, const char* call)
{
    if (code == GC_ERR_SUCCESS)
    {
        return true;
    }
    char text[1024] = "";
    size_t size = sizeof text;
    GC_ERROR last = code;
    gentl.GCGetLastError(&last, text, &size);
    fprintf(stderr, "%s: error %d %s\n", call, (int)code, text);
    return false;
}
#define TRY(name, ...) succeeded(gentl.name(__VA_ARGS__), #name)

/* The library with all its functions; null, and told, when one is missing. */
static void* load(const char* path)
{
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    bool whole = library != NULL;
#define LOOK_UP(name) whole = whole && (*(void**)(&gentl.name) = dlsym(library, #name)) != NULL;
    FUNCTIONS(LOOK_UP)
    if (!whole)
    {
        fprintf(stderr, "%s\n", dlerror());
    }
    if (!whole && library != NULL)
    {
        dlclose(library);
    }
    return whole ? library : NULL;
}

/* Opens the first camera of an interface; false when it has none, or only such as others control. */
static bool open_camera(uint32_t index)
{
    char id[ID_BYTES];
    size_t size = sizeof id;
    uint32_t cameras = 0;
    bool8_t changed = 0;
    if (!TRY(TLGetInterfaceID, tl, index, id, &size) || !TRY(TLOpenInterface, tl, id, &interface))
    {
        return false;
    }
    if (TRY(IFUpdateDeviceList, interface, &changed, SCAN_MS) && TRY(IFGetNumDevices, interface, &cameras))
    {
        for (uint32_t camera = 0; camera < cameras; ++camera)
        {
            size = sizeof id;
            if (TRY(IFGetDeviceID, interface, camera, id, &size) &&
                TRY(IFOpenDevice, interface, id, DEVICE_ACCESS_CONTROL, &device))
            {
                printf("camera %s\n", id);
                return true;
            }
        }
    }
    gentl.IFClose(interface);
    interface = NULL;
    return false;
}

static bool open_first_camera(void)
{
    uint32_t interfaces = 0;
    bool8_t changed = 0;
    if (!TRY(TLOpen, &tl) || !TRY(TLUpdateInterfaceList, tl, &changed, SCAN_MS) ||
        !TRY(TLGetNumInterfaces, tl, &interfaces))
    {
        return false;
    }
    for (uint32_t index = 0; index < interfaces; ++index)
    {
        if (open_camera(index))
        {
            return true;
        }
    }
    fprintf(stderr, "no camera that this program could open\n");
    return false;
}

static bool start(void)
{
    char id[ID_BYTES];
    size_t size = sizeof id;
    if (!TRY(DevGetDataStreamID, device, 0, id, &size) || !TRY(DevOpenDataStream, device, id, &stream) ||
        !TRY(GCRegisterEvent, stream, EVENT_NEW_BUFFER, &new_buffer))
    {
        return false;
    }
    // A producer that does not define the size of a frame leaves it to PayloadSize of the camera's description.
    uint64_t payload = 0;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size = sizeof payload;
    if (!TRY(DSGetInfo, stream, STREAM_INFO_PAYLOAD_SIZE, &type, &payload, &size))
    {
        return false;
    }
    for (int index = 0; index < BUFFERS; ++index)
    {
        if (!TRY(DSAllocAndAnnounceBuffer, stream, payload, NULL, &buffers[index]) ||
            !TRY(DSQueueBuffer, stream, buffers[index]))
        {
            return false;
        }
    }
    return TRY(DSStartAcquisition, stream, ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
}

/* A number or an address of a buffer, 0 when it has none. */
static uint64_t info(BUFFER_HANDLE buffer, BUFFER_INFO_CMD command)
{
    uint64_t value = 0;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size_t size = sizeof value;
    const GC_ERROR code = gentl.DSGetBufferInfo(stream, buffer, command, &type, &value, &size);
    return code == GC_ERR_SUCCESS ? value : 0;
}

static bool save(BUFFER_HANDLE buffer, const char* path)
{
    const uint64_t width = info(buffer, BUFFER_INFO_WIDTH);
    const uint64_t height = info(buffer, BUFFER_INFO_HEIGHT);
    const size_t bytes = (size_t)(width * height);
    const uint64_t offset = info(buffer, BUFFER_INFO_IMAGEOFFSET);
    const char* const base = (const char*)(uintptr_t)info(buffer, BUFFER_INFO_BASE);
    if (base == NULL || info(buffer, BUFFER_INFO_PIXELFORMAT) != MONO8 || info(buffer, BUFFER_INFO_XPADDING) != 0 ||
        info(buffer, BUFFER_INFO_SIZE_FILLED) < offset + bytes)
    {
        fprintf(stderr, "%s: only whole pictures in Mono8 without padding are written\n", path);
        return false;
    }
    FILE* file = fopen(path, "wb");
    bool written = file != NULL && fprintf(file, "P5\n%" PRIu64 " %" PRIu64 "\n255\n", width, height) > 0 &&
                   fwrite(base + offset, 1, bytes, file) == bytes;
    written = file != NULL && fclose(file) == 0 && written;
    if (!written)
    {
        perror(path);
    }
    return written;
}

static bool take_pictures(const char* path)
{
    for (int picture = 1; picture <= PICTURES; ++picture)
    {
        EVENT_NEW_BUFFER_DATA event = {0};
        size_t size = sizeof event;
        if (!TRY(EventGetData, new_buffer, &event, &size, FRAME_MS))
        {
            return false;
        }
        const BUFFER_HANDLE buffer = event.BufferHandle;
        printf("frame %" PRIu64 ": %" PRIu64 " x %" PRIu64 ", %" PRIu64 " bytes%s\n", info(buffer, BUFFER_INFO_FRAMEID),
               info(buffer, BUFFER_INFO_WIDTH), info(buffer, BUFFER_INFO_HEIGHT), info(buffer, BUFFER_INFO_SIZE_FILLED),
               info(buffer, BUFFER_INFO_IS_INCOMPLETE) != 0 ? ", incomplete" : "");
        const bool saved = picture < PICTURES || path == NULL || save(buffer, path);
        // From here on the next frame may come into the buffer.
        if (!TRY(DSQueueBuffer, stream, buffer) || !saved)
        {
            return false;
        }
    }
    return true;
}

/* Ends whatever was begun, backwards. */
static void end(void)
{
    if (stream != NULL)
    {
        gentl.DSStopAcquisition(stream, ACQ_STOP_FLAGS_DEFAULT);
        gentl.DSFlushQueue(stream, ACQ_QUEUE_ALL_DISCARD);
        for (int index = 0; index < BUFFERS && buffers[index] != NULL; ++index)
        {
            gentl.DSRevokeBuffer(stream, buffers[index], NULL, NULL);
        }
        if (new_buffer != NULL)
        {
            gentl.GCUnregisterEvent(stream, EVENT_NEW_BUFFER);
        }
        gentl.DSClose(stream);
    }
    if (device != NULL)
    {
        gentl.DevClose(device);
    }
    if (interface != NULL)
    {
        gentl.IFClose(interface);
    }
    if (tl != NULL)
    {
        gentl.TLClose(tl);
    }
}

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3)
    {
        fprintf(stderr, "usage: %s PRODUCER.cti [FILE.pgm]\n", argv[0]);
        return 2;
    }
    void* library = load(argv[1]);
    if (library == NULL)
    {
        return 1;
    }
    bool good = succeeded(gentl.GCInitLib(), "GCInitLib");
    if (good)
    {
        good = open_first_camera() && start() && take_pictures(argc > 2 ? argv[2] : NULL);
        end();
        gentl.GCCloseLib();
    }
    dlclose(library);
    return good ? 0 : 1;
}
