#pragma once

#include <functional>

#include <vorel/buffers/NonBlockingCliTxnBuffer.h>
#include <vorel/render/Renderer.h>

/** Prints the body of an answer. */
using Print = std::function<void(vorel::Renderer& out)>;

enum class Outcome { ok, failed };

/**
 * Appends an answer to `out`: a header, "ok" or "no", a space, the body's length in bytes as
 * ten decimal digits and a newline, and the body. What `print` throws passes through, and the
 * buffer then holds nothing of the answer.
 */
void appendAnswer(vorel::NonBlockingCliTxnBuffer& out, Outcome outcome,
                  vorel::OutputFormat_t format, const Print& print);
