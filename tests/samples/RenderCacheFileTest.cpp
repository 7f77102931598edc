#include <gtest/gtest.h>

#include "samples/PreparedSample.h"
#include "samples/RenderCacheFile.h"
#include "samples/SampleKey.h"
#include "tests/support/TempDirectory.h"

#include <cstring>

namespace
{
const juce::String variantKey = SampleKey::make ("tavrine:bank/loop.wav", "pitch=3");

struct CacheDirectory : ::testing::Test
{
    tavrine::test::TempDirectory temp { "tavrine-render-cache-test" };
    // Not created up front: the first save must make it.
    juce::File directory = temp.root.getChildFile ("RenderCache");
    RenderCacheFile cache { directory };
    std::unique_ptr<juce::AudioSampleBuffer> forward;
    std::unique_ptr<juce::AudioSampleBuffer> reverse;

    CacheDirectory()
    {
        forward = std::make_unique<juce::AudioSampleBuffer> (2, 37);
        juce::Random random (5);
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < 37; ++i)
                forward->setSample (c, i, random.nextFloat() * 2.0f - 1.0f);
        // Values a conversion would disturb: a denormal, -0 and a NaN pattern.
        forward->setSample (0, 3, 1.0e-40f);
        forward->setSample (1, 4, -0.0f);
        forward->setSample (1, 5, std::numeric_limits<float>::quiet_NaN());
        reverse = PreparedSample::makeReverse (*forward);
    }

    juce::File writeValid()
    {
        EXPECT_EQ (cache.save (variantKey, *forward, *reverse), RenderCacheFile::SaveResult::written);
        return cache.getCacheFile (variantKey);
    }

    void writeBytes (const juce::MemoryBlock& bytes)
    {
        directory.createDirectory();
        ASSERT_TRUE (cache.getCacheFile (variantKey).replaceWithData (bytes.getData(), bytes.getSize()));
    }
};

bool sameBits (const juce::AudioSampleBuffer& a, const juce::AudioSampleBuffer& b)
{
    if (a.getNumChannels() != b.getNumChannels() || a.getNumSamples() != b.getNumSamples())
        return false;
    for (int c = 0; c < a.getNumChannels(); ++c)
        if (std::memcmp (a.getReadPointer (c), b.getReadPointer (c), sizeof (float) * (size_t) a.getNumSamples()) != 0)
            return false;
    return true;
}

// An independent reading of the format for the fuzz loop: the buffers the
// bytes hold if they are a well-formed file, else none.
std::optional<std::pair<juce::AudioSampleBuffer, juce::AudioSampleBuffer>> parse (const juce::MemoryBlock& bytes)
{
    const auto* data = static_cast<const char*> (bytes.getData());
    const auto size = (juce::int64) bytes.getSize();
    auto intAt = [&] (juce::int64 at) { return (int) juce::ByteOrder::littleEndianInt (data + at); };
    if (size < 8)
        return std::nullopt;
    const int channels = intAt (0), samples = intAt (4);
    if (channels < 1 || channels > 64 || samples < 1)
        return std::nullopt;
    const juce::int64 block = 8 + 4 * (juce::int64) channels * samples;
    if (size != 2 * block || intAt (block) != channels || intAt (block + 4) != samples)
        return std::nullopt;
    juce::AudioSampleBuffer f (channels, samples), r (channels, samples);
    for (int c = 0; c < channels; ++c)
    {
        std::memcpy (f.getWritePointer (c), data + 8 + 4 * (juce::int64) c * samples, 4 * (size_t) samples);
        std::memcpy (r.getWritePointer (c), data + block + 8 + 4 * (juce::int64) c * samples, 4 * (size_t) samples);
    }
    return std::make_pair (std::move (f), std::move (r));
}
} // namespace

TEST_F (CacheDirectory, RoundTripIsBitIdenticalAndNamedAfterTheKey)
{
    const auto file = writeValid();
    EXPECT_EQ (file.getFileName(), variantKey + ".rawsample");
    EXPECT_EQ (file.getFileName().length(), 75);
    EXPECT_EQ (file.getSize(), 2 * (8 + 4 * 2 * 37));

    const auto read = cache.read (variantKey);
    ASSERT_TRUE (read.has_value());
    EXPECT_TRUE (sameBits (*read->forward, *forward));
    EXPECT_TRUE (sameBits (*read->reverse, *reverse));
}

// The file's layout, byte by byte: little-endian ints, each channel one run.
TEST_F (CacheDirectory, LayoutIsHeaderThenChannelRunsForwardThenReverse)
{
    juce::MemoryBlock bytes;
    ASSERT_TRUE (writeValid().loadFileAsData (bytes));
    const auto* data = static_cast<const char*> (bytes.getData());
    EXPECT_EQ (juce::ByteOrder::littleEndianInt (data), 2u);
    EXPECT_EQ (juce::ByteOrder::littleEndianInt (data + 4), 37u);
    EXPECT_EQ (std::memcmp (data + 8 + 4 * 37, forward->getReadPointer (1), 4 * 37), 0);
    const int block = 8 + 4 * 2 * 37;
    EXPECT_EQ (juce::ByteOrder::littleEndianInt (data + block), 2u);
    EXPECT_EQ (std::memcmp (data + block + 8, reverse->getReadPointer (0), 4 * 37), 0);
}

TEST_F (CacheDirectory, PlainKeysAreNeverWritten)
{
    const auto plain = SampleKey::make ("tavrine:bank/loop.wav", {});
    EXPECT_EQ (cache.save (plain, *forward, *reverse), RenderCacheFile::SaveResult::notCacheable);
    EXPECT_FALSE (cache.getCacheFile (plain).exists());
    EXPECT_EQ (directory.getNumberOfChildFiles (juce::File::findFilesAndDirectories), 0);
}

TEST_F (CacheDirectory, SavedTwiceIsOneFileWithANewTime)
{
    const auto file = writeValid();
    const auto old = juce::Time::getCurrentTime() - juce::RelativeTime::hours (5);
    ASSERT_TRUE (file.setLastModificationTime (old));

    // Different audio under the same key must not replace the file.
    forward->clear();
    EXPECT_EQ (cache.save (variantKey, *forward, *reverse), RenderCacheFile::SaveResult::renewed);
    EXPECT_EQ (directory.getNumberOfChildFiles (juce::File::findFiles), 1);
    EXPECT_GT (file.getLastModificationTime(), old + juce::RelativeTime::hours (4));
    const auto read = cache.read (variantKey);
    ASSERT_TRUE (read.has_value());
    EXPECT_NE (read->forward->getSample (0, 0), 0.0f);
}

TEST_F (CacheDirectory, AWriteThatCannotOpenItsFileFailsAndLeavesNothing)
{
    ASSERT_TRUE (directory.replaceWithText ("a file where the directory should be"));
    EXPECT_EQ (cache.save (variantKey, *forward, *reverse), RenderCacheFile::SaveResult::failed);
    EXPECT_FALSE (cache.read (variantKey).has_value());
    EXPECT_TRUE (directory.existsAsFile());
}

struct DamagedFile
{
    const char* name;
    std::function<juce::MemoryBlock (const juce::MemoryBlock& valid)> make;
};

class DamagedCacheFile : public CacheDirectory,
                         public ::testing::WithParamInterface<DamagedFile>
{};

// Each is a miss, and the file is gone afterwards so that it is not read again.
TEST_P (DamagedCacheFile, IsAMissAndDeleted)
{
    juce::MemoryBlock valid;
    ASSERT_TRUE (writeValid().loadFileAsData (valid));
    writeBytes (GetParam().make (valid));

    EXPECT_FALSE (cache.read (variantKey).has_value());
    EXPECT_FALSE (cache.getCacheFile (variantKey).exists());
}

namespace
{
juce::MemoryBlock cut (const juce::MemoryBlock& m, size_t size)
{
    return juce::MemoryBlock (m.getData(), std::min (size, m.getSize()));
}
juce::MemoryBlock patchInt (juce::MemoryBlock m, size_t at, int value)
{
    const auto le = juce::ByteOrder::swapIfBigEndian ((juce::uint32) value);
    m.copyFrom (&le, (int) at, 4);
    return m;
}
constexpr size_t validBlock = 8 + 4 * 2 * 37;
} // namespace

INSTANTIATE_TEST_SUITE_P (
    Files, DamagedCacheFile,
    ::testing::Values (
        DamagedFile { "Empty", [] (const auto&) { return juce::MemoryBlock(); } },
        DamagedFile { "ForwardOnly", [] (const auto& m) { return cut (m, validBlock); } },
        DamagedFile { "ShortByOneSample", [] (const auto& m) { return cut (m, m.getSize() - 4); } },
        DamagedFile { "LongByOneSample",
                      [] (const auto& m) {
                          auto longer = m;
                          longer.append ("\0\0\0\0", 4);
                          return longer;
                      } },
        DamagedFile { "ZeroChannels", [] (const auto& m) { return patchInt (m, 0, 0); } },
        DamagedFile { "NegativeChannels", [] (const auto& m) { return patchInt (m, 0, -2); } },
        DamagedFile { "SixtyFiveChannels", [] (const auto& m) { return patchInt (m, 0, 65); } },
        DamagedFile { "NegativeSamples", [] (const auto& m) { return patchInt (m, 4, -37); } },
        DamagedFile { "HugeSamples", [] (const auto& m) { return patchInt (m, 4, 0x7fffffff); } },
        DamagedFile { "ReverseWithOtherChannels", [] (const auto& m) { return patchInt (m, validBlock, 1); } },
        DamagedFile { "ReverseWithOtherLength", [] (const auto& m) { return patchInt (m, validBlock + 4, 36); } }),
    [] (const auto& info) { return std::string (info.param.name); });

// Random damage to a valid file, seeded: bytes flipped, the file cut or
// extended, a header overwritten. The reader must never crash or read past
// what it holds (run under ASan), and must give either exactly what a strict
// reading of the bytes gives, or a miss that deletes the file.
TEST_F (CacheDirectory, RandomDamageGivesAnExactHitOrADeletingMiss)
{
    juce::MemoryBlock valid;
    ASSERT_TRUE (writeValid().loadFileAsData (valid));
    juce::Random random (20261124);
    int hits = 0, misses = 0;
    for (int iteration = 0; iteration < 500; ++iteration)
    {
        juce::MemoryBlock bytes (valid);
        switch (random.nextInt (4))
        {
            case 0:
                for (int n = 1 + random.nextInt (4); --n >= 0;)
                    bytes[random.nextInt ((int) bytes.getSize())] ^= (char) (1 << random.nextInt (8));
                break;
            case 1: bytes.setSize ((size_t) random.nextInt ((int) bytes.getSize())); break;
            case 2:
                for (int n = 1 + random.nextInt (40); --n >= 0;)
                    bytes.append (&n, 1);
                break;
            default:
            {
                const int at = random.nextBool() ? 0 : (int) validBlock;
                const int value = random.nextInt();
                bytes.copyFrom (&value, at + 4 * random.nextInt (2), 4);
                break;
            }
        }
        writeBytes (bytes);

        const auto expected = parse (bytes);
        const auto read = cache.read (variantKey);
        ASSERT_EQ (read.has_value(), expected.has_value()) << "iteration " << iteration;
        if (read)
        {
            ++hits;
            ASSERT_TRUE (sameBits (*read->forward, expected->first)) << "iteration " << iteration;
            ASSERT_TRUE (sameBits (*read->reverse, expected->second)) << "iteration " << iteration;
        }
        else
        {
            ++misses;
            ASSERT_FALSE (cache.getCacheFile (variantKey).exists()) << "iteration " << iteration;
        }
    }
    // Both outcomes must have been exercised for the loop to mean anything.
    EXPECT_GT (hits, 50);
    EXPECT_GT (misses, 50);
}
