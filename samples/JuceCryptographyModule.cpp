// The JUCE module that holds juce::MD5, compiled here alone since only the
// sample keys use it. A JUCE module's source must be a translation unit of
// its own, with nothing included before it.
#include <juce_cryptography/juce_cryptography.cpp>
