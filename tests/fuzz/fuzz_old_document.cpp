// Arbitrary bytes as an old file-list document (a typedstream archive).

#include "model/TWClipwrightDocument.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    (void)TWParseClipwrightDocument(bytes, QStringLiteral("fuzz.clipwright"));
    return 0;
}
