// Arbitrary text as a smart group's predicate: parsed, and what parses run as SQL over a metadata index.

#include "FuzzFile.h"

#include "platform/TWMetadataIndex.h"
#include "platform/TWPredicate.h"

#include <QCoreApplication>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static int argc = 1;
    static char name[] = "fuzz_predicate";
    static char* argv[] = {name, nullptr};
    static QCoreApplication application(argc, argv);
    static TWMetadataIndex index(fuzzFolder() + QStringLiteral("/index.sqlite"));

    const auto predicate =
        TWPredicate::parse(QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size)));
    if (!predicate) return 0;
    (void)index.search(*predicate, {fuzzFolder()});
    return 0;
}
