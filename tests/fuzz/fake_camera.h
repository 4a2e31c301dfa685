// SPDX-License-Identifier: Apache-2.0
// A camera on the fake network: registers, memory and a discovery answer, in one of a few moods.
#pragma once

#include "fuzz/fake_network.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <map>

namespace nq::fuzz
{

/// Answers from whichever thread of the library asks. Registers and memory are one: what was never set reads 0.
class FakeCamera
{
  public:
    enum class Mood
    {
        Helpful,  ///< does what it is asked
        Refusing, ///< answers with a status
        Silent,
    };

    /// A camera for one stream over RDMA and one message channel, which nobody controls. It is at the network's camera
    /// address from now on.
    FakeCamera()
    {
        Set(0x0900, 1);          // message channels
        Set(0x0904, 1);          // stream channels
        Set(0x092C, 0x04000000); // RDMA
        Set(0x0938, 3000);       // heartbeat timeout
        const std::uint64_t payload = 64;
        std::array<unsigned char, 8> bytes{};
        std::memcpy(bytes.data(), &payload, sizeof payload);
        Store(0xE600 + 32, bytes.data(), bytes.size());
        FakeNetwork::Instance().React(
            [this](int socket, const sockaddr_in& to, const Bytes& command) { Answer(socket, to, command); });
    }
    ~FakeCamera() { FakeNetwork::Instance().React(nullptr); }
    FakeCamera(const FakeCamera&) = delete;
    FakeCamera& operator=(const FakeCamera&) = delete;

    void SetMood(Mood mood) { m_mood = mood; }

    /// Before anybody asks for it only.
    void Set(std::uint32_t address, std::uint32_t value)
    {
        const unsigned char bytes[] = {static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
                                       static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
        Store(address, bytes, sizeof bytes);
    }

    /// The register's value now.
    std::uint32_t Get(std::uint32_t address)
    {
        const std::lock_guard lock(m_mutex);
        Bytes bytes;
        Load(address, 4, bytes);
        return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
               static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
    }

  private:
    void Store(std::uint32_t address, const unsigned char* bytes, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            m_memory[address + static_cast<std::uint32_t>(i)] = bytes[i];
        }
    }

    void Load(std::uint32_t address, std::size_t count, Bytes& answer) const
    {
        for (std::size_t i = 0; i < count; ++i)
        {
            const auto found = m_memory.find(address + static_cast<std::uint32_t>(i));
            answer.push_back(found == m_memory.end() ? static_cast<unsigned char>(0) : found->second);
        }
    }

    void Answer(int socket, const sockaddr_in& to, const Bytes& command)
    {
        if (m_mood == Mood::Silent || command.size() < 8 || command[0] != 0x42 || to.sin_port != htons(3956))
        {
            return;
        }
        const std::lock_guard lock(m_mutex);
        Bytes answer{0, 0, command[2], static_cast<unsigned char>(command[3] + 1), 0, 0, command[6], command[7]};
        if (command[3] == 0x02)
        {
            Describe(answer);
        }
        else if (m_mood == Mood::Refusing)
        {
            answer[0] = 0x80;
            answer[1] = 0x06;
            answer.insert(answer.end(), 4, 0);
        }
        else
        {
            Obey(command, answer);
        }
        FakeNetwork::Instance().Deliver(socket, answer);
    }

    static void Describe(Bytes& answer)
    {
        answer.resize(256, 0);
        const auto put = [&](std::size_t offset, const char* bytes, std::size_t count) {
            std::copy_n(bytes, count, reinterpret_cast<char*>(answer.data()) + offset);
        };
        put(18, "\x02\x00\x00\x00\x00\x01", 6);
        put(44, "\x0A\x09\x00\x02", 4);
        put(60, "\xFF\xFF\xFF\x00", 4);
        put(80, "Maker", 5);
        put(112, "Model", 5);
        put(144, "3.1.0", 5);
    }

    void Obey(const Bytes& command, Bytes& answer)
    {
        const auto word = [&](std::size_t offset) {
            return static_cast<std::uint32_t>(command[offset] << 8 | command[offset + 1]);
        };
        const std::uint32_t address = word(8) << 16 | word(10);
        switch (command[3])
        {
        case 0x80:
            Load(address, 4, answer);
            break;
        case 0x84:
            answer.insert(answer.end(), 4, 0);
            Load(address, word(14), answer);
            break;
        default:
            Store(address, command.data() + 12, command.size() - 12);
            answer.insert(answer.end(), 4, 0);
            break;
        }
    }

    std::atomic<Mood> m_mood{Mood::Helpful};
    std::mutex m_mutex;
    std::map<std::uint32_t, unsigned char> m_memory;
};

} // namespace nq::fuzz
