// Arbitrary bytes as a workflow file: read, every action made from its saved state, and the
// instructions a run would receive.

#include "FuzzFile.h"

#include "engine/TWWorkflowFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString path = writeFuzzFile(QStringLiteral("input.twwf"), data, size);
    const TWWorkflow workflow = TWWorkflowFile::read(path);
    (void)workflow.state();
    (void)workflow.instructions();
    return 0;
}
