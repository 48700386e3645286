#include "TWActions.h"

#include "TWActionRegistry.h"
#include "TWLevelActions.h"

void TWRegisterActions() {
    static const bool registered = [] {
        TWActionRegistry::registerClass<TWActionChangeGain>();
        TWActionRegistry::registerClass<TWActionBalance>();
        TWActionRegistry::registerClass<TWActionNormalize>();
        return true;
    }();
    (void)registered;
}
