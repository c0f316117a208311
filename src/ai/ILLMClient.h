#pragma once

#include <QString>

// A model client as the action service sees it: one prompt in, the model's whole answer out.
class ILLMClient
{
public:
    virtual ~ILLMClient() = default;

    // Blocks (running the calling thread's event loop) until the answer arrives. Empty means failure,
    // with the reason in lastError() (an empty answer may also come with an empty lastError()).
    virtual QString complete(const QString &prompt) = 0;
    // False when the URL, the key or the model is missing: nothing would be sent.
    virtual bool isConfigured() const = 0;
    // Text of the last failure; empty when the last call succeeded.
    virtual QString lastError() const = 0;
};
