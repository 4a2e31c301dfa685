// SPDX-License-Identifier: Apache-2.0
// Exported helpers without state: answers to info queries, URLs of register maps, text, paths and a clock.
#include "gentl/nq_gentl_util.h"

#include "GenTL/GenTL.h"

#include <array>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>

namespace NQGenTLUtil
{
namespace
{

constexpr char kSeparators[] = "/\\";
constexpr unsigned char kNoDigit = 255;

// Value of each hexadecimal digit; every other character gives kNoDigit.
constexpr std::array<unsigned char, 256> kHexToDec = [] {
    std::array<unsigned char, 256> table{};
    table.fill(kNoDigit);
    for (unsigned char value = 0; value < 10; ++value)
    {
        table['0' + value] = value;
    }
    for (unsigned char value = 0; value < 6; ++value)
    {
        table['A' + value] = static_cast<unsigned char>(10 + value);
        table['a' + value] = static_cast<unsigned char>(10 + value);
    }
    return table;
}();

unsigned char HexToDec(char digit)
{
    return kHexToDec[static_cast<unsigned char>(digit)];
}

int CopyBytes(const void* value, unsigned long count, int type, int* piType, void* pBuffer, unsigned long* piSize)
{
    if (piSize == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    const unsigned long space = *piSize;
    if (piType != nullptr)
    {
        *piType = type;
    }
    *piSize = count;
    if (pBuffer == nullptr)
    {
        return GenTL::GC_ERR_SUCCESS;
    }
    if (space < count)
    {
        return GenTL::GC_ERR_BUFFER_TOO_SMALL;
    }
    if (count != 0)
    {
        std::memcpy(pBuffer, value, count);
    }
    return GenTL::GC_ERR_SUCCESS;
}

template <class Value>
int CopyValue(const Value& value, int type, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyBytes(&value, sizeof(value), type, piType, pBuffer, piSize);
}

} // namespace

int CopyInfoString(std::string value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyBytes(value.c_str(), value.size() + 1, GenTL::INFO_DATATYPE_STRING, piType, pBuffer, piSize);
}

int CopyInfoInt16(short value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyValue(value, GenTL::INFO_DATATYPE_INT16, piType, pBuffer, piSize);
}

int CopyInfoUint16(unsigned short value, int* piType, void* pBuffer, unsigned long* piSize)
{
    // Deliberate(NumberStoredBeforeTheSpace): a number of two bytes is stored before the space is compared, so it
    // arrives even where the call then says that the space was too small.
    if (piSize != nullptr && pBuffer != nullptr)
    {
        std::memcpy(pBuffer, &value, sizeof(value));
    }
    return CopyValue(value, GenTL::INFO_DATATYPE_UINT16, piType, pBuffer, piSize);
}

int CopyInfoInt32(int value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyValue(value, GenTL::INFO_DATATYPE_INT32, piType, pBuffer, piSize);
}

int CopyInfoUint32(unsigned int value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyValue(value, GenTL::INFO_DATATYPE_UINT32, piType, pBuffer, piSize);
}

int CopyInfoInt64(long value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyValue(value, GenTL::INFO_DATATYPE_INT64, piType, pBuffer, piSize);
}

int CopyInfoUint64(unsigned long value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyValue(value, GenTL::INFO_DATATYPE_UINT64, piType, pBuffer, piSize);
}

int CopyInfoFloat64(double value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyValue(value, GenTL::INFO_DATATYPE_FLOAT64, piType, pBuffer, piSize);
}

int CopyInfoPtr(void* value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyValue(value, GenTL::INFO_DATATYPE_PTR, piType, pBuffer, piSize);
}

int CopyInfoBool(bool value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyValue(value, GenTL::INFO_DATATYPE_BOOL8, piType, pBuffer, piSize);
}

int CopyInfoSizeT(unsigned long value, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyValue(value, GenTL::INFO_DATATYPE_SIZET, piType, pBuffer, piSize);
}

int CopyInfoBuffer(void* value, unsigned long count, int* piType, void* pBuffer, unsigned long* piSize)
{
    return CopyBytes(value, count, GenTL::INFO_DATATYPE_BUFFER, piType, pBuffer, piSize);
}

std::string BuildLocalURL(const std::string& fileName, const std::string& content, unsigned long address)
{
    char numbers[40];
    std::snprintf(numbers, sizeof(numbers), ";%lx;%zx", address, content.size());
    return "local:" + fileName + numbers;
}

std::string Printf(std::string format, ...)
{
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not follow va_start of a class by value.
    const int length = std::vsnprintf(text, sizeof(text), format.c_str(), arguments);
    va_end(arguments);
    if (length >= static_cast<int>(sizeof(text)))
    {
        std::abort();
    }
    return length < 0 ? std::string() : std::string(text, static_cast<std::size_t>(length));
}

unsigned long QueryCounterMS()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long>(static_cast<double>(now.tv_sec) * 1000.0 +
                                      static_cast<double>(now.tv_nsec) / 1e6);
}

bool IsLittleEndian()
{
    return true;
}

std::string FilenameFromPath(const std::string& path)
{
    const std::size_t separator = path.find_last_of(kSeparators);
    return separator == std::string::npos ? path : path.substr(separator + 1);
}

std::string DirectoryFromPath(const std::string& path)
{
    const std::size_t separator = path.find_last_of(kSeparators);
    return separator == std::string::npos ? std::string() : path.substr(0, separator);
}

std::string UriDecode(const std::string& text)
{
    std::string decoded;
    decoded.reserve(text.size());
    std::size_t position = 0;
    while (position < text.size())
    {
        const bool escape = text[position] == '%' && position + 2 < text.size() &&
                            HexToDec(text[position + 1]) != kNoDigit && HexToDec(text[position + 2]) != kNoDigit;
        if (escape)
        {
            decoded += static_cast<char>(HexToDec(text[position + 1]) << 4 | HexToDec(text[position + 2]));
            position += 3;
        }
        else
        {
            decoded += text[position];
            ++position;
        }
    }
    return decoded;
}

std::string UriEncode(const std::string& text)
{
    // Deliberate(OnlyTheSpaceIsEncoded): reserved and non-ASCII bytes pass unchanged, the percent sign too: the text is
    // a path that can be opened once its spaces are back.
    std::string encoded;
    encoded.reserve(text.size());
    for (const char byte : text)
    {
        if (byte == ' ')
        {
            encoded += "%20";
        }
        else
        {
            encoded += byte;
        }
    }
    return encoded;
}

std::string GetCtiPath()
{
    // A function that no other library of the process can stand in for.
    Dl_info own{};
    if (dladdr(reinterpret_cast<const void*>(&CopyBytes), &own) == 0 || own.dli_fname == nullptr)
    {
        return {};
    }
    char resolved[PATH_MAX + 1];
    static_assert(sizeof(resolved) == 4097);
    return realpath(own.dli_fname, resolved) != nullptr ? resolved : own.dli_fname;
}

} // namespace NQGenTLUtil
