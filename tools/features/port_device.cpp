// SPDX-License-Identifier: Apache-2.0
// A port of a GenTL producer in the shape of a device of aravis.
#include "port_device.h"

namespace nq::tool
{

namespace
{

struct PortDevice
{
    ArvDevice parent;
    const FeaturePort* port;
};

const FeaturePort& PortOf(ArvDevice* device)
{
    return *reinterpret_cast<PortDevice*>(device)->port;
}

gboolean Outcome(bool success, GError** error)
{
    if (!success)
    {
        g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_PROTOCOL_ERROR, "the port refused");
    }
    return success ? TRUE : FALSE;
}

gboolean ReadMemory(ArvDevice* device, guint64 address, guint32 size, void* data, GError** error)
{
    return Outcome(PortOf(device).read(address, data, size), error);
}

/// What is written is `void` for older engines and `const void` for newer ones.
template <typename Data>
gboolean WriteMemory(ArvDevice* device, guint64 address, guint32 size, Data* data, GError** error)
{
    return Outcome(PortOf(device).write(address, data, size), error);
}

gboolean ReadRegister(ArvDevice* device, guint64 address, guint32* value, GError** error)
{
    return ReadMemory(device, address, sizeof *value, value, error);
}

gboolean WriteRegister(ArvDevice* device, guint64 address, guint32 value, GError** error)
{
    return WriteMemory(device, address, sizeof value, &value, error);
}

void InitClass(void* made, void*)
{
    auto* const device = static_cast<ArvDeviceClass*>(made);
    device->read_memory = ReadMemory;
    device->write_memory = WriteMemory;
    device->read_register = ReadRegister;
    device->write_register = WriteRegister;
}

} // namespace

ArvDevice* NewPortDevice(const FeaturePort& port)
{
    static const GType kType = g_type_register_static_simple(ARV_TYPE_DEVICE, "NqPortDevice", sizeof(ArvDeviceClass),
                                                             InitClass, sizeof(PortDevice), nullptr, GTypeFlags{});
    void* const made = g_object_new(kType, nullptr);
    static_cast<PortDevice*>(made)->port = &port;
    return static_cast<ArvDevice*>(made);
}

} // namespace nq::tool
