// Arbitrary bytes as a property list, XML or binary, as preferences and workflow files are read; what
// reads must write and read again.

#include "platform/TWPropertyList.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto value = TWPropertyList::fromData(bytes, QStringLiteral("fuzz.plist"));
    if (!value) return 0;
    for (const QByteArray& written : {TWPropertyList::toXml(*value), TWPropertyList::toBinary(*value)})
        if (!written.isEmpty()) (void)TWPropertyList::fromData(written, QStringLiteral("again.plist"));
    return 0;
}
