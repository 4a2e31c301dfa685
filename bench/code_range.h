// SPDX-License-Identifier: Apache-2.0
// The machine code of one file of this process: calls are told apart by their return address.
#pragma once

#include <atomic>
#include <cstdint>
#include <link.h>
#include <string_view>

namespace nq::bench
{

/// Holds no address at first. Any thread may ask.
class CodeRange
{
  public:
    /// Takes the code of the first file whose path has `part` in it; that of the program for an empty one.
    void Take(std::string_view part)
    {
        Search search{*this, part};
        dl_iterate_phdr(Look, &search);
    }

    bool Holds(const void* place) const
    {
        const auto address = reinterpret_cast<std::uintptr_t>(place);
        return address >= m_begin && address < m_end;
    }

  private:
    struct Search
    {
        CodeRange& range;
        std::string_view part;
    };

    static int Look(dl_phdr_info* info, std::size_t, void* given)
    {
        const auto& search = *static_cast<Search*>(given);
        if (std::string_view(info->dlpi_name).find(search.part) == std::string_view::npos)
        {
            return 0;
        }
        for (int index = 0; index < info->dlpi_phnum; ++index)
        {
            const ElfW(Phdr)& header = info->dlpi_phdr[index];
            if (header.p_type == PT_LOAD && (header.p_flags & PF_X) != 0)
            {
                search.range.m_begin = info->dlpi_addr + header.p_vaddr;
                search.range.m_end = info->dlpi_addr + header.p_vaddr + header.p_memsz;
            }
        }
        return 1;
    }

    std::atomic<std::uintptr_t> m_begin{0};
    std::atomic<std::uintptr_t> m_end{0};
};

} // namespace nq::bench
