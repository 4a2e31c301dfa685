// SPDX-License-Identifier: Apache-2.0
// Exported helpers without state: answers to info queries, URLs of register maps, text, paths and a clock.
#pragma once

#include "base/nq_export.h"

#include <string>

namespace NQGenTLUtil
{

// All are reentrant.

// Every GetInfo of the library ends in one of the CopyInfo functions. They store the GenTL data type in `*piType`
// unless it is null, and always the needed size, in bytes, in `*piSize`. A null `pBuffer` asks for that size only.
// Results: GC_ERR_SUCCESS, GC_ERR_INVALID_PARAMETER for a null `piSize`, GC_ERR_BUFFER_TOO_SMALL when `*piSize` held
// less than the needed size; then the buffer is left alone.

/// The text with its terminating zero.
NQ_EXPORT int CopyInfoString(std::string value, int* piType, void* pBuffer, unsigned long* piSize);
NQ_EXPORT int CopyInfoInt16(short value, int* piType, void* pBuffer, unsigned long* piSize);
/// Unlike its siblings writes both bytes even when the space is too small.
NQ_EXPORT int CopyInfoUint16(unsigned short value, int* piType, void* pBuffer, unsigned long* piSize);
NQ_EXPORT int CopyInfoInt32(int value, int* piType, void* pBuffer, unsigned long* piSize);
NQ_EXPORT int CopyInfoUint32(unsigned int value, int* piType, void* pBuffer, unsigned long* piSize);
NQ_EXPORT int CopyInfoInt64(long value, int* piType, void* pBuffer, unsigned long* piSize);
NQ_EXPORT int CopyInfoUint64(unsigned long value, int* piType, void* pBuffer, unsigned long* piSize);
NQ_EXPORT int CopyInfoFloat64(double value, int* piType, void* pBuffer, unsigned long* piSize);
NQ_EXPORT int CopyInfoPtr(void* value, int* piType, void* pBuffer, unsigned long* piSize);
NQ_EXPORT int CopyInfoBool(bool value, int* piType, void* pBuffer, unsigned long* piSize);
NQ_EXPORT int CopyInfoSizeT(unsigned long value, int* piType, void* pBuffer, unsigned long* piSize);
/// `count` bytes at `value`, whatever they are.
NQ_EXPORT int CopyInfoBuffer(void* value, unsigned long count, int* piType, void* pBuffer, unsigned long* piSize);

/// "local:<fileName>;<address>;<length of content>", both numbers in lower-case hexadecimal without prefix or padding.
NQ_EXPORT std::string BuildLocalURL(const std::string& fileName, const std::string& content, unsigned long address);

/// Formats as printf does. A result of more than 4095 characters is a mistake of the caller and ends the process.
NQ_EXPORT std::string Printf(std::string format, ...);

/// Monotonic clock, in milliseconds.
NQ_EXPORT unsigned long QueryCounterMS();

/// Always true on this platform.
NQ_EXPORT bool IsLittleEndian();

/// What follows the last '/' or '\'; the whole path without one.
NQ_EXPORT std::string FilenameFromPath(const std::string& path);

/// What precedes the last '/' or '\'; empty without one.
NQ_EXPORT std::string DirectoryFromPath(const std::string& path);

/// Replaces each '%' that two hexadecimal digits follow by the byte they form.
NQ_EXPORT std::string UriDecode(const std::string& text);

/// Replaces each space by "%20" and nothing else.
NQ_EXPORT std::string UriEncode(const std::string& text);

/// Absolute path of the file this code was loaded from; empty when it cannot be found out.
NQ_EXPORT std::string GetCtiPath();

} // namespace NQGenTLUtil
