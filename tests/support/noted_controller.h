// SPDX-License-Identifier: Apache-2.0
// A controller, its system and modules that note what happens to them.
#pragma once

#include "gentl/nq_gentl_controller.h"
#include "gentl/nq_gentl_module_base.h"
#include "gentl/nq_gentl_system.h"

#include <string>
#include <utility>
#include <vector>

namespace nq::test
{

using Log = std::vector<std::string>;

/// A module of either base that notes what happens to it.
template <class Base>
class Noted : public Base
{
  public:
    Noted(Log& log, std::string name, bool port = true)
        : Base(nullptr), m_log(log), m_name(std::move(name)), m_port(port)
    {
    }
    ~Noted() override { m_log.push_back("delete " + m_name); }

    bool IsPortImplemented() override { return m_port; }
    bool IsEventImplemented(int id) override { return id == 5; }
    GigERDMA::_NQ_GENTL_PORT_INFO GetPortInfo() override { return {}; }
    GigERDMA::_NQ_GENTL_XML_INFO GetXMLInfo() override { return {}; }
    std::vector<std::string> GetURLList() override { return {"local:x"}; }
    int ReadPort(unsigned long address, void*, unsigned long*) override { return Note("ReadPort", address); }
    int WritePort(unsigned long address, const void*, unsigned long*) override { return Note("WritePort", address); }
    int ReadPortStacked(GenTL::S_PORT_REGISTER_STACK_ENTRY*, unsigned long* count) override
    {
        return Note("ReadPortStacked", *count);
    }
    int WritePortStacked(GenTL::S_PORT_REGISTER_STACK_ENTRY*, unsigned long* count) override
    {
        return Note("WritePortStacked", *count);
    }
    int GetPortURL(char*, unsigned long* size) override { return Note("GetPortURL", *size); }
    int GetPortInfo(int command, int*, void*, unsigned long*) override
    {
        return Note("GetPortInfo", static_cast<unsigned long>(command));
    }
    int GetNumPortURLs(unsigned int* count) override { return Note("GetNumPortURLs", *count); }
    int GetPortURLInfo(unsigned int index, int, int*, void*, unsigned long*) override
    {
        return Note("GetPortURLInfo", index);
    }
    std::string GetName() override { return m_name; }
    std::string GetId() override { return m_name; }
    int DoOpen() override { return 0; }
    int DoClose() override
    {
        m_log.push_back("close " + m_name);
        return 0;
    }

  protected:
    Log& m_log;

  private:
    int Note(const std::string& operation, unsigned long argument)
    {
        m_log.push_back(operation + " " + std::to_string(argument));
        return 7;
    }

    const std::string m_name;
    const bool m_port;
};

using Module = Noted<GigERDMA::NQGenTLModuleBase>;

class System : public Noted<GigERDMA::NQGenTLSystem>
{
  public:
    explicit System(Log& log) : Noted(log, "TLSystem") {}
    int GetInfo(int command, int*, void*, unsigned long*) override { return 100 + command; }
    int UpdateInterfaceList(bool*, unsigned long) override { return 0; }
    int GetNumInterfaces(unsigned int*) override { return 0; }
    int GetInterfaceID(unsigned int, char*, unsigned long*) override { return 0; }
    int GetInterfaceInfo(const char*, int, int*, void*, unsigned long*) override { return 0; }
    int OpenInterface(const char*, void**) override { return 0; }
    int CloseInterface(void*) override { return 0; }
    void Abandon() override { m_log.push_back("abandon TLSystem"); }
};

class Controller : public GigERDMA::NQGenTLController
{
  public:
    GigERDMA::NQGenTLSystem* CreateSystem() override
    {
        systems.push_back(makeSystem ? new System(log) : nullptr);
        return systems.back();
    }
    int DoInit() override { return initResult; }
    int DoClose() override
    {
        log.push_back("DoClose");
        return closeResult;
    }

    int initResult = 0;
    int closeResult = 0;
    bool makeSystem = true;
    std::vector<GigERDMA::NQGenTLSystem*> systems;
    Log log;
};

} // namespace nq::test
