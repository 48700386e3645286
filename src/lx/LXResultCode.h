#pragma once

#include <cstdint>

// Result codes shared by the framework's per-file operations and the application's action hooks.
// A progress delegate answers one of these from update(); any answer other than Continue ends the
// running operation, which then returns that answer.
enum LXResultCode : int32_t {
    LXContinue = -1002,
    LXCancelled = -1001,
    LXStopped = -1000,
    LXUserStopped = -999,
    LXInvalidParameter = -2,
    LXUnchanged = -3,
    LXMissingDestination = -4,
    LXMissingInstructions = -5,
    LXReadOnlyDestination = -6,
};

// Error codes of LXError, grouped the way file entries show them: Unsupported shows as an unsupported
// file; Damaged, Truncated, BadHeader, BadChunk, ReadFailed and WriteFailed as a bad file; a file
// opened with the Repairable warning is still readable. They lie apart from the result codes above, so
// that no number means two things; an invalid parameter is the same failure in both.
enum LXErrorCode : int32_t {
    LXErrInvalidParameter = LXInvalidParameter,
    LXErrDamaged = -2001,
    LXErrTruncated = -2002,
    LXErrBadHeader = -2003,
    LXErrBadChunk = -2004,
    LXErrUnsupported = -2005,
    LXErrReadFailed = -2006,
    LXErrWriteFailed = -2007,
    LXErrBusy = -2008,
    LXErrRepairable = -2009,
    LXErrFileSystem = -2010, // the system's own reason is the error's errnum()
    LXErrAudioDevice = -2011, // no output device, or one that would not open or start
};

// Four-character codes as integers, big-endian like the Mac's OSType: fourCC("WAVE").
constexpr uint32_t LXFourCC(const char (&code)[5]) {
    return (uint32_t(uint8_t(code[0])) << 24) | (uint32_t(uint8_t(code[1])) << 16) |
           (uint32_t(uint8_t(code[2])) << 8) | uint32_t(uint8_t(code[3]));
}
