// SPDX-License-Identifier: Apache-2.0
// The producers of a grab with their systems and interfaces, each of them opened once for all of its cameras.
#include "producer_tree.h"

namespace nq::tool
{

Interface& ProducerTree::InterfaceOf(const FoundCamera& camera)
{
    const std::lock_guard lock(m_mutex);
    Producer& producer = Opened(camera.producer);
    std::unique_ptr<Interface>& interface = producer.interfaces[camera.camera.interfaceId];
    if (!interface)
    {
        interface = std::make_unique<Interface>(producer.system, camera.camera.interfaceId);
    }
    return *interface;
}

const System& ProducerTree::SystemOf(const std::string& producer)
{
    const std::lock_guard lock(m_mutex);
    return Opened(producer).system;
}

ProducerTree::Producer& ProducerTree::Opened(const std::string& path)
{
    std::unique_ptr<Producer>& producer = m_producers[path];
    if (!producer)
    {
        producer = std::make_unique<Producer>(path);
    }
    return *producer;
}

} // namespace nq::tool
