// SPDX-License-Identifier: Apache-2.0
// The producers of a grab with their systems and interfaces, each of them opened once for all of its cameras.
#pragma once

#include "producers.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace nq::tool
{

/// Opens what is asked for and keeps it open. Any thread may ask; the object outlives what it gave.
class ProducerTree
{
  public:
    /// The interface that lists the camera. Throws ToolFailure and GenTLError when it, its system or its library cannot
    /// be opened.
    Interface& InterfaceOf(const FoundCamera& camera);

    /// The system of a producer, by the path of its file. Throws as InterfaceOf() does.
    const System& SystemOf(const std::string& producer);

  private:
    struct Producer
    {
        explicit Producer(const std::string& path) : library(path), system(library) {}

        GenTLLibrary library;
        System system;
        std::map<std::string, std::unique_ptr<Interface>> interfaces;
    };

    Producer& Opened(const std::string& path);

    std::mutex m_mutex; ///< guards what follows
    std::map<std::string, std::unique_ptr<Producer>> m_producers;
};

} // namespace nq::tool
