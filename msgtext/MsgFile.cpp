// Message files: the text form of a tree written to a file whole or not at
// all, and read back from one.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "MsgText.h"
#include "TextCommon.h"

namespace {

using pricemsg::text::SetError;

// Gives MSGTEXT_E_IO with the cause in `err`, and leaves `failure` in errno.
int IoFailure(MsgTextError* err, int failure, const char* what, const char* path) {
  SetError(err, MSGTEXT_E_IO, 0, 0, "cannot %s %s: %s", what, path, std::strerror(failure));
  errno = failure;
  return MSGTEXT_E_IO;
}

// A new file beside `path`, named "<path>.part-<pid>-<n>", made here and
// nowhere else: it is created exclusively, so that neither a file nor a
// link that stands under the name is followed, and two writers never share
// one.
int CreatePart(const std::string& path, std::string* part) {
  static std::atomic<unsigned> made{0};
  for (int attempt = 0;; ++attempt) {
    *part = path + ".part-" + std::to_string(getpid()) + "-" + std::to_string(made.fetch_add(1));
    const int fd = open(part->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST || attempt == 100) return fd;
  }
}

// Writes all of `text` to `fd` and flushes it to the disk; false with errno
// set on failure.
bool WriteAll(int fd, const std::string& text) {
  const char* p = text.data();
  size_t left = text.size();
  while (left > 0) {
    const ssize_t n = write(fd, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;
      return false;
    }
    p += n;
    left -= static_cast<size_t>(n);
  }
  return fsync(fd) == 0;
}

// Replaces the file at `path` with `text`, through a part file that takes
// its place only once it is whole.
int ReplaceFile(const char* path, const std::string& text, MsgTextError* err) {
  std::string part;
  const int fd = CreatePart(path, &part);
  if (fd < 0) return IoFailure(err, errno, "create a file beside", path);
  int failure = WriteAll(fd, text) ? 0 : errno;
  if (close(fd) != 0 && failure == 0) failure = errno;
  if (failure == 0 && std::rename(part.c_str(), path) == 0) return MSGTEXT_OK;
  if (failure == 0) failure = errno;
  unlink(part.c_str());
  return IoFailure(err, failure, "write", path);
}

bool TooLarge(MsgTextError* err, const char* path) {
  SetError(err, 0, 0, 0, "cannot read %s: it is larger than %zu bytes", path, kMsgFileMaxSize);
  return false;
}

// The whole content of the file at `path`, into `text`.
bool ReadWhole(const char* path, std::string* text, MsgTextError* err) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(std::fopen(path, "rb"), std::fclose);
  if (!f) {
    IoFailure(err, errno, "open", path);
    return false;
  }
  struct stat st;
  if (fstat(fileno(f.get()), &st) == 0 && S_ISREG(st.st_mode) &&
      static_cast<unsigned long long>(st.st_size) > kMsgFileMaxSize) {
    return TooLarge(err, path);
  }
  // What is not a regular file tells no size: it is read until it ends or
  // passes the limit.
  constexpr size_t kChunk = size_t{1} << 16;
  size_t size = 0;
  for (size_t n = kChunk; n == kChunk && size <= kMsgFileMaxSize; size += n) {
    text->resize(size + kChunk);
    n = std::fread(&(*text)[size], 1, kChunk, f.get());
  }
  text->resize(size);
  if (std::ferror(f.get())) {
    IoFailure(err, errno, "read", path);
    return false;
  }
  return size <= kMsgFileMaxSize || TooLarge(err, path);
}

}  // namespace

int MA_WriteMsgFile(CMsg* msg, const char* path, MsgTextError* err) {
  if (!path || !*path) return SetError(err, MSGTEXT_E_ARG, 0, 0, "no file name");
  try {
    std::string text;
    const int rc = MA_WriteMsgText(msg, &text, err);
    return rc != MSGTEXT_OK ? rc : ReplaceFile(path, text, err);
  } catch (const std::bad_alloc&) {
    return SetError(err, MSGTEXT_E_NOMEM, 0, 0, "out of memory");
  }
}

CMsg* MA_ReadMsgFile(const char* path, MsgTextError* err) {
  if (!path || !*path) {
    SetError(err, 0, 0, 0, "no file name");
    return nullptr;
  }
  try {
    std::string text;
    if (!ReadWhole(path, &text, err)) return nullptr;
    return MA_ReadMsgText(text.data(), text.size(), err);
  } catch (const std::bad_alloc&) {
    SetError(err, 0, 0, 0, "out of memory");
    return nullptr;
  }
}
