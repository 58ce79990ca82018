// Fuzzing steps for the entry points that take text from outside: the
// message-text reader, message files, and the catalogue tool's command
// line. Each runs one input and aborts on a broken promise (a sanitizer
// reports the rest); the libFuzzer programs and the corpus replay call them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzzing {

// The bytes as a message text. A text that is read writes a text that reads
// back and writes the same again; a text that is refused is refused at a
// line and column inside it, with a reason.
void ReadText(const uint8_t* data, size_t size);

// The bytes as a message file: read as the reader of its form reads them,
// to the same tree or the same error; a NUL byte is refused before any parse.
void ReadFile(const uint8_t* data, size_t size);

// The bytes as a JSON message file: a document that is read writes JSON
// that reads back to the same tree and writes the same again; one that is
// refused is refused at a line and column inside it, with a reason.
void ReadJson(const uint8_t* data, size_t size);

// The bytes as the catalogue tool's command line (see CatalogueFuzz.cpp):
// it gives a known status, prints results only when it found something and
// errors only when it did not, and prints a message file as it reads.
void RunCatalogue(const uint8_t* data, size_t size);

// A directory of this process's own for the files of the steps, made on
// first use and removed at exit.
const char* ScratchDir();

// Aborts unless `promise` holds.
void Check(bool promise);

// Writes the file at `path` anew with the `size` bytes at `data`.
void Store(const std::string& path, const char* data, size_t size);

}  // namespace fuzzing
