// SPDX-License-Identifier: Apache-2.0
// Texts: local URLs, file names, URI coding, addresses, and the URLs and names that a camera keeps in its memory.
#include "fuzz/fake_network.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_remote_device.h"
#include "gev/nq_gev_util.h"
#include "gige/gige_camera.h"
#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"

#include <cctype>
#include <cstring>
#include <sstream>

namespace
{

using nq::fuzz::Bytes;
using nq::fuzz::FakeNetwork;
using nq::fuzz::FuzzInput;
using nq::fuzz::Require;

int DigitValue(char digit)
{
    const std::string digits = "0123456789abcdef";
    const std::size_t value = digits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(digit))));
    return digit == '\0' || value == std::string::npos ? -1 : static_cast<int>(value);
}

std::string Decoded(const std::string& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        // The last two bytes never begin an escape.
        if (text[i] == '%' && i + 2 < text.size() && DigitValue(text[i + 1]) >= 0 && DigitValue(text[i + 2]) >= 0)
        {
            result += static_cast<char>(DigitValue(text[i + 1]) * 16 + DigitValue(text[i + 2]));
            i += 2;
        }
        else
        {
            result += text[i];
        }
    }
    return result;
}

void CheckCoding(const std::string& text)
{
    Require(NQGenTLUtil::UriDecode(text) == Decoded(text), "escapes with two hexadecimal digits are decoded");
    const std::string encoded = NQGenTLUtil::UriEncode(text);
    Require(encoded.find(' ') == std::string::npos, "no space stays");
    const auto spaces = static_cast<std::size_t>(std::count(text.begin(), text.end(), ' '));
    Require(encoded.size() == text.size() + 2 * spaces, "only spaces are encoded");
    if (text.find('%') == std::string::npos)
    {
        Require(NQGenTLUtil::UriDecode(encoded) == text, "what was encoded is decoded to itself");
    }
}

void CheckPath(const std::string& path)
{
    const std::string file = NQGenTLUtil::FilenameFromPath(path);
    const std::string folder = NQGenTLUtil::DirectoryFromPath(path);
    Require(file.find_first_of("/\\") == std::string::npos, "a file name has no separator");
    const bool separated = file.size() != path.size();
    Require(path.size() == folder.size() + file.size() + (separated ? 1 : 0), "folder, separator and file name");
    Require(path.compare(0, folder.size(), folder) == 0 && path.ends_with(file), "both are parts of the path");
}

void CheckLocalUrl(const std::string& name, const std::string& content, unsigned long address)
{
    std::ostringstream expected;
    expected << "local:" << name << ';' << std::hex << address << ';' << content.size();
    Require(NQGenTLUtil::BuildLocalURL(name, content, address) == expected.str(), "the form of a local URL");
}

void CheckAddresses(const std::string& text)
{
    const std::string whole = text.c_str();
    unsigned int fields[4] = {};
    char rest = 0;
    const unsigned int address = NQGevUtil::IPAddressToUint32(whole);
    if (address != 0)
    {
        Require(std::sscanf(whole.c_str(), "%u.%u.%u.%u%c", fields, fields + 1, fields + 2, fields + 3, &rest) == 4,
                "an address has four numbers");
        Require(address == (fields[0] << 24 | fields[1] << 16 | fields[2] << 8 | fields[3]),
                "the first is the highest");
        Require(NQGevUtil::IPAddressToString(__builtin_bswap32(address)) == whole, "an address as it was written");
    }
    NQGevUtil::MacAddressToUint64(whole);
    int value = whole.size() < 4 ? 0 : 1;
    for (std::size_t i = 0; i < 4 && value != 0; ++i)
    {
        value = value << 4 | std::max(DigitValue(whole[i]), 0);
    }
    Require(GigETL::hexstringtovalue(whole.c_str()) == (value & 0xFFFF), "four hexadecimal digits", value);
    GigETL::hextoc(whole.c_str());
}

/// The text up to its first zero byte within the 512 bytes of a camera's URL.
std::string UrlIn(const Bytes& memory)
{
    const auto end = std::find(memory.begin(), memory.end(), static_cast<unsigned char>(0));
    return {memory.begin(), end};
}

/// A camera whose memory reads give `urls` in turn, or a status.
void CheckCameraUrls(FuzzInput& input)
{
    Bytes urls[2];
    bool refused[2] = {};
    for (std::size_t i = 0; i < 2; ++i)
    {
        refused[i] = input.Below(8) == 7;
        urls[i] = input.Take(input.Word() % 513);
        urls[i].resize(512, static_cast<unsigned char>(input.Flag() ? 'x' : 0));
    }
    FakeNetwork::Instance().React([&](int socket, const sockaddr_in&, const Bytes& command) {
        const std::size_t which = command[10] == 0x02 ? 0 : 1;
        const bool readsUrl = command[3] == 0x84;
        Bytes answer{0, 0, 0, static_cast<unsigned char>(command[3] + 1), 0, 4, command[6], command[7], 0, 0, 0, 0};
        if (readsUrl)
        {
            answer[0] = refused[which] ? 0x80 : 0;
            answer.insert(answer.end(), urls[which].begin(), urls[which].end());
        }
        FakeNetwork::Instance().Deliver(socket, answer);
    });
    NQGevTL tl;
    NQGevRemoteDevice remote(&tl, nq::test::LoopbackCamera(), 3, nullptr);
    Require(remote.Open() == 0, "a camera is opened");
    std::vector<std::string> expected;
    for (std::size_t i = 0; i < 2; ++i)
    {
        if (!refused[i])
        {
            expected.push_back(UrlIn(urls[i]));
        }
    }
    Require(remote.GetURLList() == expected, "the camera's URLs as they stand");
    std::string all;
    for (const std::string& url : expected)
    {
        all += url + '\0';
    }
    unsigned long size = 0;
    Require(remote.GetPortURL(nullptr, &size) == 0 && size == all.size() + 1, "the space that all URLs need");
    std::vector<char> buffer(size);
    Require(remote.GetPortURL(buffer.data(), &size) == 0, "all URLs in one text");
    Require(std::equal(all.begin(), all.end(), buffer.begin()) && buffer.back() == 0, "each URL with its end");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::size_t kind = input.Below(5);
    if (kind == 4)
    {
        CheckCameraUrls(input);
        FakeNetwork::Instance().React(nullptr);
        Require(FakeNetwork::Instance().OpenSockets() == 0, "every socket is closed");
        return 0;
    }
    const unsigned long address = kind == 2 ? input.Quad() : 0;
    const std::string name = kind == 2 ? input.Text(input.Byte()) : std::string();
    const Bytes rest = input.Rest();
    const std::string text(rest.begin(), rest.end());
    switch (kind)
    {
    case 0:
        CheckCoding(text);
        break;
    case 1:
        CheckPath(text);
        break;
    case 2:
        CheckLocalUrl(name, text, address);
        break;
    default:
        CheckAddresses(text);
        break;
    }
    return 0;
}
