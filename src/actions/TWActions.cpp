#include "actions/TWActions.h"

#include "actions/level/TWLevelActions.h"
#include "engine/TWActionRegistry.h"

void TWRegisterActions() {
    static const bool registered = [] {
        TWActionRegistry::registerClass<TWActionChangeGain>();
        TWActionRegistry::registerClass<TWActionBalance>();
        TWActionRegistry::registerClass<TWActionNormalize>();
        return true;
    }();
    (void)registered;
}
