// SPDX-License-Identifier: Apache-2.0
// A module whose every answer a test chooses, and which records what it is asked to do.
#pragma once

#include "base/nq_answers.h"
#include "gentl/nq_gentl_module_base.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

namespace nq::test
{

class FakeModule : public GigERDMA::NQGenTLModuleBase
{
  public:
    explicit FakeModule(std::string moduleId = "", std::string moduleName = "Fake", NQGenTLModuleBase* parent = nullptr)
        : NQGenTLModuleBase(parent), id(std::move(moduleId)), name(std::move(moduleName))
    {
    }
    /// The root of modules that give `answers`.
    explicit FakeModule(const NQAnswers& answers) : NQGenTLModuleBase(nullptr, answers), name("Fake") {}
    ~FakeModule() override
    {
        if (onDelete)
        {
            onDelete();
        }
    }

    using NQGenTLModuleBase::GetPortInfo;

    bool IsPortImplemented() override { return true; }
    bool IsEventImplemented(int event) override { return events.count(event) != 0; }
    GigERDMA::_NQ_GENTL_PORT_INFO GetPortInfo() override { return portInfo; }
    GigERDMA::_NQ_GENTL_XML_INFO GetXMLInfo() override { return {}; }
    std::vector<std::string> GetURLList() override { return urls; }
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override
    {
        return onRead ? onRead(address, buffer, size) : 0;
    }
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override
    {
        return onWrite ? onWrite(address, buffer, size) : 0;
    }
    std::string GetName() override { return name; }
    std::string GetId() override { return id; }
    int DoOpen() override
    {
        calls.push_back("DoOpen");
        return openResult;
    }
    int DoClose() override
    {
        calls.push_back("DoClose");
        return closeResult;
    }

    std::string id;
    std::string name;
    std::set<int> events;
    GigERDMA::_NQ_GENTL_PORT_INFO portInfo;
    std::vector<std::string> urls;
    int openResult = 0;
    int closeResult = 0;
    std::vector<std::string> calls;
    std::function<int(unsigned long, void*, unsigned long*)> onRead;
    std::function<int(unsigned long, const void*, unsigned long*)> onWrite;
    std::function<void()> onDelete;
};

} // namespace nq::test
