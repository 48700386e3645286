#pragma once

#include "lx/dsp/LXKernel.h"

enum class LXFadeType { In = 0, Out = 1 };

// The gain of a fade at x, the distance from the fade's silent end as a share of its width (0 silent, 1
// full level), for a curve from 0 to 1. The ramp is the quadratic Bezier curve the waveform view draws,
// from the silent corner (0, 0) to (1, 1) with its control point at (curve, 1 - curve): 0.5 is a straight
// line, lower curves rise fast and then level off, higher ones start slowly.
double LXFadeGain(double x, double curve);

// A gain ramp at one end of a file of `frames` frames, processed whole and in order. A fade in ramps
// frames [0, anchor) up from silence: frame f gets the gain at f / anchor. A fade out ramps frames
// [anchor, frames) down: frame f gets the gain at (frames - f) / (frames - anchor), so the last frame
// is one step above silence. (These are the positions sox's fade effect uses, so a straight fade matches
// it sample for sample.) Every other frame passes unchanged.
class LXFade final : public LXKernel {
public:
    LXFade(LXFadeType type, int64_t anchor, int64_t frames, double curve)
        : m_type(type), m_anchor(anchor), m_frames(frames), m_curve(curve) {}

    void prepare(int channels, double rate) override;
    void process(const float* in, float* out, int64_t frames) override;
    void process(const double* in, double* out, int64_t frames) override;

private:
    template <typename T> void apply(const T* in, T* out, int64_t frames);
    double gainAt(int64_t frame) const; // 1 outside the ramp

    LXFadeType m_type;
    int64_t m_anchor;
    int64_t m_frames;
    double m_curve;
    int m_channels = 0;
    int64_t m_position = 0; // the file frame the next block starts at
};
