#include <gtest/gtest.h>

#include <juce_audio_basics/juce_audio_basics.h>

#include "tests/support/AllocationCounter.h"

// The allocation tests of every audio path are only as good as the counter:
// a buffer that grows through JUCE's HeapBlock (malloc/realloc) must count as
// much as a container that grows through operator new.
TEST (AllocationCounter, CountsEveryKindOfHeapAllocationOnTheCallingThreadOnly)
{
    juce::AudioBuffer<float> buffer (2, 64);
    {
        tavrine::test::ScopedAllocationCount count;
        buffer.setSize (2, 4096);
#if ! defined(__SANITIZE_ADDRESS__) && ! defined(__SANITIZE_THREAD__)
        EXPECT_GE (count.count(), 1u) << "AudioBuffer::setSize grows through malloc";
#endif
    }
    {
        tavrine::test::ScopedAllocationCount count;
        auto vector = std::make_unique<std::vector<int>> (100);
        EXPECT_GE (count.count(), 2u);
    }
    {
        tavrine::test::ScopedAllocationCount count;
        std::thread other ([] { std::vector<int> elsewhere (1000); });
        const auto ownBeforeJoin = count.count();
        other.join();
        // Starting a thread allocates its state here; the other thread's
        // vector must not be added to this thread's count.
        EXPECT_EQ (count.count(), ownBeforeJoin);
    }
}
