#include "samples/RenderCacheFile.h"

#include "samples/SampleKey.h"

namespace
{
constexpr int writeBufferBytes = 16384;
constexpr juce::int64 headerBytes = 8;

bool writeBlock (juce::OutputStream& out, const juce::AudioSampleBuffer& buffer)
{
    const int numSamples = buffer.getNumSamples();
    bool ok = out.writeInt (buffer.getNumChannels()) && out.writeInt (numSamples);
    for (int channel = 0; ok && channel < buffer.getNumChannels(); ++channel)
        ok = out.write (buffer.getReadPointer (channel), (size_t) numSamples * sizeof (float));
    return ok;
}

juce::int64 blockBytes (int numChannels, int numSamples)
{
    return headerBytes + (juce::int64) numChannels * (juce::int64) numSamples * (juce::int64) sizeof (float);
}

struct BlockShape
{
    int numChannels = 0;
    int numSamples = 0;
};

// Reads a header and rejects it unless a block of that shape fits in what is
// left of the file, so that a bad header never makes us allocate.
std::optional<BlockShape> readShape (juce::InputStream& in, juce::int64 bytesLeft)
{
    if (bytesLeft < headerBytes)
        return std::nullopt;
    const BlockShape shape { in.readInt(), in.readInt() };
    if (shape.numChannels <= 0 || shape.numChannels > RenderCacheFile::maxChannels || shape.numSamples <= 0)
        return std::nullopt;
    if (blockBytes (shape.numChannels, shape.numSamples) > bytesLeft)
        return std::nullopt;
    return shape;
}

std::unique_ptr<juce::AudioSampleBuffer> readSamples (juce::InputStream& in, BlockShape shape)
{
    auto buffer = std::make_unique<juce::AudioSampleBuffer> (shape.numChannels, shape.numSamples);
    const auto channelBytes = (size_t) shape.numSamples * sizeof (float);
    for (int channel = 0; channel < shape.numChannels; ++channel)
        if ((size_t) in.read (buffer->getWritePointer (channel), channelBytes) != channelBytes)
            return nullptr;
    return buffer;
}

std::optional<RenderCacheFile::Buffers> readBuffers (const juce::File& file)
{
    juce::FileInputStream in (file);
    if (in.failedToOpen())
        return std::nullopt;

    const juce::int64 length = in.getTotalLength();
    const auto forwardShape = readShape (in, length);
    if (! forwardShape)
        return std::nullopt;

    const juce::int64 forwardBytes = blockBytes (forwardShape->numChannels, forwardShape->numSamples);
    // The reverse block mirrors the forward one, so the whole file is two
    // blocks of one shape; checking the length before reading any audio also
    // keeps a huge header from allocating.
    if (length != 2 * forwardBytes)
        return std::nullopt;

    RenderCacheFile::Buffers buffers;
    buffers.forward = readSamples (in, *forwardShape);
    if (buffers.forward == nullptr)
        return std::nullopt;

    const auto reverseShape = readShape (in, length - forwardBytes);
    if (! reverseShape || reverseShape->numChannels != forwardShape->numChannels
        || reverseShape->numSamples != forwardShape->numSamples)
        return std::nullopt;

    buffers.reverse = readSamples (in, *reverseShape);
    if (buffers.reverse == nullptr)
        return std::nullopt;
    return buffers;
}
} // namespace

RenderCacheFile::RenderCacheFile (const juce::File& cacheDirectory) : directory (cacheDirectory) {}

juce::File RenderCacheFile::getCacheFile (const juce::String& key) const
{
    return directory.getChildFile (key + ".rawsample");
}

RenderCacheFile::SaveResult RenderCacheFile::save (const juce::String& key, const juce::AudioSampleBuffer& forward,
                                                   const juce::AudioSampleBuffer& reverse) const
{
    directory.createDirectory();
    if (! SampleKey::isRenderedVariant (key))
        return SaveResult::notCacheable;

    const auto file = getCacheFile (key);
    if (file.existsAsFile())
    {
        file.setLastModificationTime (juce::Time::getCurrentTime());
        return SaveResult::renewed;
    }

    bool ok = false;
    {
        juce::FileOutputStream out (file, writeBufferBytes);
        if (out.failedToOpen())
            return SaveResult::failed;
        ok = writeBlock (out, forward) && writeBlock (out, reverse);
        out.flush();
        ok = ok && out.getStatus().wasOk();
    }
    // A short write would only be deleted by the next read: do it now.
    if (! ok)
    {
        file.deleteFile();
        return SaveResult::failed;
    }
    return SaveResult::written;
}

std::optional<RenderCacheFile::Buffers> RenderCacheFile::read (const juce::String& key) const
{
    const auto file = getCacheFile (key);
    if (! file.existsAsFile())
        return std::nullopt;

    file.setLastModificationTime (juce::Time::getCurrentTime());
    auto buffers = readBuffers (file);
    if (! buffers)
        file.deleteFile();
    return buffers;
}
