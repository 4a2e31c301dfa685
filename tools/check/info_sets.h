// SPDX-License-Identifier: Apache-2.0
// Every info command of every module that is open, with the type and the duty that the standard gives it.
#pragma once

#include "acquisition.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace nq::check
{

/// One command, bound to its module.
struct InfoCommand
{
    std::string name; ///< "DSGetInfo of command 3"
    InfoCall call;
    GenTL::INFO_DATATYPE type = 0;
    bool mandatory = false;
};

/// A function that takes commands, for the ones that no standard knows.
struct InfoFunction
{
    std::string name;
    std::function<GenTL::GC_ERROR(int32_t, GenTL::INFO_DATATYPE*, void*, size_t*)> call;
};

/// Modules as deep as the producer's camera allows, with one announced buffer and a new-buffer event.
class InfoSets
{
  public:
    explicit InfoSets(Context& context);

    std::vector<InfoFunction> functions;
    std::vector<InfoCommand> commands;

  private:
    using Row = std::pair<GenTL::INFO_DATATYPE, bool>;
    void Add(const std::string& name, const std::vector<Row>& rows, decltype(InfoFunction::call) call);
    void AddSystem(Context& context);
    void AddDevice(Context& context);
    void AddStream(Context& context);
    void AddEvent(Context& context);
    void AddPorts(Context& context);

    std::unique_ptr<Tree> m_tree;
    Acquisition* m_stream = nullptr;
};

/// Type and duty of the buffer infos, by command.
std::vector<std::pair<GenTL::INFO_DATATYPE, bool>> BufferInfos();

} // namespace nq::check
