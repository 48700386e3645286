#pragma once

#include "lx/LXResultCode.h"

// Receives progress from every long framework operation, once a block, on the thread doing the work.
// update() answers LXContinue to go on; any other code ends the operation, which returns that code.
class LXProgressDelegate {
public:
    virtual ~LXProgressDelegate() = default;
    virtual void reset() = 0;
    virtual int32_t update(float fractionDone) = 0;
};
