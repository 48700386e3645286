// A test effect that fails on purpose: it passes its input through until a sample reaches full scale,
// then crashes (mode 0) or hangs (mode 1), as a faulty plug-in would in a user's batch.

#include <lv2/core/lv2.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <unistd.h>

struct Faulty {
    const float* mode;
    const float* in;
    float* out;
};

static LV2_Handle instantiate(const LV2_Descriptor*, double, const char*, const LV2_Feature* const*) {
    return calloc(1, sizeof(Faulty));
}

static void connect_port(LV2_Handle instance, uint32_t port, void* data) {
    Faulty* self = static_cast<Faulty*>(instance);
    if (port == 0) self->mode = static_cast<const float*>(data);
    if (port == 1) self->in = static_cast<const float*>(data);
    if (port == 2) self->out = static_cast<float*>(data);
}

static void run(LV2_Handle instance, uint32_t frames) {
    Faulty* self = static_cast<Faulty*>(instance);
    for (uint32_t i = 0; i < frames; ++i) {
        if (std::fabs(self->in[i]) >= 0.99f) {
            if (*self->mode < 0.5f) raise(SIGSEGV);
            for (;;) pause();
        }
        self->out[i] = self->in[i];
    }
}

static void cleanup(LV2_Handle instance) {
    free(instance);
}

static const LV2_Descriptor descriptor = {"urn:clipwright:test:faulty", instantiate, connect_port, nullptr, run, nullptr,
                                          cleanup, nullptr};

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index == 0 ? &descriptor : nullptr;
}
