#pragma once

namespace qvrControllableAudio
{
// A source whose state moves as it renders (a read position, a filter
// memory, a resampler's phase) and that can render a stretch of audio "as if
// nothing happened" for a crossfade: between saveCrossfadeState and
// restoreCrossfadeState it renders as usual; restoreCrossfadeState puts its
// state back as it was at saveCrossfadeState. `inCrossfade` is set by the
// chain's adapters for the time in between.
//
// Audio thread only.
class CrossfadableSource
{
public:
    virtual ~CrossfadableSource() = default;
    virtual void saveCrossfadeState() = 0;
    virtual void restoreCrossfadeState() = 0;

    bool inCrossfade = false;
};
} // namespace qvrControllableAudio
