// Message files: the text form of a tree written to a file whole or not at
// all, and read back from one. The writing and reading of whole files serve
// every form of message file (TextCommon.h).
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

#include "MsgBase.h"
#include "MsgJson.h"
#include "MsgText.h"
#include "TextCommon.h"

namespace {

using pricemsg::text::SetError;

// How many names a write tries for its temporary file before it gives up.
constexpr int kNameAttempts = 100;

// A path as reasons show it: control bytes as \xHH, as in quoted texts,
// and whole up to 96 bytes so shown, else its start and its end around
// "...", so that the cause after it still fits the reason.
struct ShownPath {
  char text[100];
};

size_t Width(char c) { return pricemsg::text::NeedsHex(static_cast<unsigned char>(c)) ? 4 : 1; }

char* Put(char* w, char c) {
  const unsigned char u = static_cast<unsigned char>(c);
  if (pricemsg::text::NeedsHex(u)) return pricemsg::text::PutHex(w, u);
  *w = c;
  return w + 1;
}

ShownPath Shorter(const char* path) {
  constexpr size_t kMax = 96, kHead = 32, kTail = kMax - kHead - 3;
  const size_t size = std::strlen(path);
  size_t width = 0;
  for (size_t i = 0; i < size; ++i) width += Width(path[i]);
  ShownPath out;
  char* w = out.text;
  size_t tail = 0;  // where the part shown after "..." starts
  if (width > kMax) {
    for (size_t used = 0; used + Width(path[tail]) <= kHead; ++tail) {
      used += Width(path[tail]);
      w = Put(w, path[tail]);
    }
    w = std::strcpy(w, "...") + 3;
    size_t from = size;
    for (size_t used = 0; from > tail && used + Width(path[from - 1]) <= kTail; --from) {
      used += Width(path[from - 1]);
    }
    tail = from;
  }
  for (size_t i = tail; i < size; ++i) w = Put(w, path[i]);
  *w = '\0';
  return out;
}

// Gives MSGTEXT_E_IO with the cause in `err`, and leaves `failure` in errno.
int IoFailure(MsgTextError* err, int failure, const char* what, const char* path) {
  SetError(err, MSGTEXT_E_IO, 0, 0, "cannot %s %s: %s", what, Shorter(path).text,
           std::strerror(failure));
  errno = failure;
  return MSGTEXT_E_IO;
}

// A file descriptor, closed with its owner.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() {
    if (fd_ >= 0) close(fd_);
  }
  int get() const { return fd_; }
  void Reset(int fd) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }
  // Closes it now; false with errno set if the close reports a failure.
  bool Close() {
    const int fd = fd_;
    fd_ = -1;
    return close(fd) == 0;
  }

 private:
  int fd_;
};

// What stands where a file is written: its directory, open, and its name
// there.
struct Place {
  Fd dir;
  bool syncable = false;  // the directory could be opened for reading, and so flushed
  std::string name;
};

const char* FileKind(mode_t mode) {
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISSOCK(mode)) return "a socket";
  return "a special file";
}

// Opens the directory of `path` and takes its last part as the name; a path
// whose last part names no file ("dir/", ".", "..") is a directory.
int Locate(const char* path, Place* place, MsgTextError* err) {
  const char* slash = std::strrchr(path, '/');
  const std::string dir = !slash ? "." : slash == path ? "/" : std::string(path, slash);
  place->name = slash ? slash + 1 : path;
  if (place->name.empty() || place->name == "." || place->name == "..") {
    return IoFailure(err, EISDIR, "write", path);
  }
  int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  place->syncable = fd >= 0;
  // A directory that may be written but not listed is written without the
  // flush of its entries.
  if (fd < 0 && errno == EACCES) fd = open(dir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return IoFailure(err, errno, "write", path);
  place->dir.Reset(fd);
  return MSGTEXT_OK;
}

// Looks at what stands under the name, without following a link: nothing,
// a regular file or a symbolic link are replaced; anything else is refused
// and left alone. `*old` is the regular file's status, when there is one.
int Examine(const Place& place, const char* path, bool* regular, struct stat* old,
            MsgTextError* err) {
  *regular = false;
  if (fstatat(place.dir.get(), place.name.c_str(), old, AT_SYMLINK_NOFOLLOW) != 0) {
    return errno == ENOENT ? MSGTEXT_OK : IoFailure(err, errno, "write", path);
  }
  if (S_ISREG(old->st_mode)) {
    *regular = true;
    return MSGTEXT_OK;
  }
  if (S_ISLNK(old->st_mode)) return MSGTEXT_OK;
  if (S_ISDIR(old->st_mode)) return IoFailure(err, EISDIR, "write", path);
  SetError(err, MSGTEXT_E_IO, 0, 0, "cannot write %s: it is %s, not a regular file",
           Shorter(path).text, FileKind(old->st_mode));
  errno = EINVAL;
  return MSGTEXT_E_IO;
}

// A new file in the directory, named ".msgfile-<pid>-<n>.tmp" whatever the
// length of the target's name, created exclusively and without following a
// link: a file or a link that stands under a name makes it try the next,
// so no two writers share one and nothing planted is written through.
int CreateTemporary(const Place& place, mode_t mode, std::string* name) {
  static std::atomic<unsigned long> made{0};
  const std::string prefix = ".msgfile-" + std::to_string(getpid()) + "-";
  for (int attempt = 0;; ++attempt) {
    *name = prefix + std::to_string(made.fetch_add(1)) + ".tmp";
    const int fd = openat(place.dir.get(), name->c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd >= 0 || errno != EEXIST || attempt == kNameAttempts - 1) return fd;
  }
}

// Gives the new file the mode, owner and group of the one it replaces; false
// with errno set where it cannot (EPERM: this process may not give the file
// that owner or group), and then the old file must stay.
bool KeepMode(int fd, const struct stat& old) {
  if (fchown(fd, old.st_uid, old.st_gid) != 0) {
    [[maybe_unused]] const int ignored = fchown(fd, static_cast<uid_t>(-1), old.st_gid);
  }
  struct stat now;
  if (fstat(fd, &now) != 0) return false;
  if (now.st_uid != old.st_uid || now.st_gid != old.st_gid) {
    errno = EPERM;
    return false;
  }
  return fchmod(fd, old.st_mode & 0777) == 0;
}

// A file that this process could not write in place is not replaced
// either, though the directory would let a rename do it: a read-only file,
// or another user's that it may not write.
int CheckWritable(const Place& place, const char* path, MsgTextError* err) {
  if (faccessat(place.dir.get(), place.name.c_str(), W_OK, AT_EACCESS) == 0) return MSGTEXT_OK;
  const int failure = errno;
  SetError(err, MSGTEXT_E_IO, 0, 0, "cannot write %s: %s, and it is not replaced",
           Shorter(path).text, std::strerror(failure));
  errno = failure;
  return MSGTEXT_E_IO;
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

}  // namespace

namespace pricemsg::text {

// The text goes to a temporary file in the same directory, which is flushed
// and then renamed over the name: the rename is the only step that a reader
// can see, and nothing fails after it, so a failed write has changed
// nothing.
int ReplaceFile(const char* path, const std::string& text, MsgTextError* err) {
  Place place;
  if (const int rc = Locate(path, &place, err)) return rc;
  bool regular = false;
  struct stat old;
  if (const int rc = Examine(place, path, &regular, &old, err)) return rc;
  if (regular) {
    if (const int rc = CheckWritable(place, path, err)) return rc;
  }
  // A file that replaces another is private until it has the old one's
  // mode; a new one takes the usual mode of new files under the umask.
  std::string temporary;
  Fd fd(CreateTemporary(place, regular ? 0600 : 0666, &temporary));
  if (fd.get() < 0) return IoFailure(err, errno, "create a file beside", path);
  int failure = 0;
  bool kept = true;
  if ((regular && !(kept = KeepMode(fd.get(), old))) || !WriteAll(fd.get(), text)) {
    failure = errno;
  }
  if (!fd.Close() && failure == 0) failure = errno;
  int rc = MSGTEXT_OK;
  if (!kept && failure == EPERM) {
    SetError(err, MSGTEXT_E_IO, 0, 0,
             "cannot replace %s: the new file could not keep its owner and group, and it is "
             "not replaced",
             Shorter(path).text);
    errno = EPERM;
    rc = MSGTEXT_E_IO;
  } else if (failure != 0) {
    rc = IoFailure(err, failure, "write", path);
  } else {
    // What stands under the name is looked at again just before it goes:
    // a special file put there meanwhile is still left alone.
    bool unused;
    struct stat now;
    rc = Examine(place, path, &unused, &now, err);
    if (rc == MSGTEXT_OK &&
        renameat(place.dir.get(), temporary.c_str(), place.dir.get(), place.name.c_str()) != 0) {
      rc = IoFailure(err, errno, "write", path);
    }
  }
  if (rc != MSGTEXT_OK) {
    const int saved = errno;
    unlinkat(place.dir.get(), temporary.c_str(), 0);
    errno = saved;
    return rc;
  }
  // The new entry reaches the disk; the file is in place whatever this
  // gives, so a failure here is not one of the write.
  if (place.syncable) fsync(place.dir.get());
  return MSGTEXT_OK;
}

}  // namespace pricemsg::text

namespace {

bool TooLarge(MsgTextError* err, const char* path, size_t maxSize) {
  SetError(err, MSGTEXT_E_IO, 0, 0, "cannot read %s: it is larger than %zu bytes",
           Shorter(path).text, maxSize);
  return false;
}

// A NUL byte at `at` of `text`: no message file holds one, so the file is
// refused there, at its line and column.
bool NulByte(MsgTextError* err, const char* path, const std::string& text, size_t at) {
  int line = 0;
  int column = 0;
  pricemsg::text::PositionOf(text.data(), text.size(), at, &line, &column);
  SetError(err, MSGTEXT_E_TEXT, line, column,
           "%s holds a NUL byte at byte %zu: it is no message file", Shorter(path).text, at);
  return false;
}

}  // namespace

namespace pricemsg::text {

bool ReadWholeFile(const char* path, std::string* text, MsgTextError* err, size_t maxSize) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(std::fopen(path, "rb"), std::fclose);
  if (!f) {
    IoFailure(err, errno, "open", path);
    return false;
  }
  struct stat st;
  if (fstat(fileno(f.get()), &st) == 0 && S_ISREG(st.st_mode)) {
    if (static_cast<unsigned long long>(st.st_size) > maxSize) return TooLarge(err, path, maxSize);
    text->reserve(static_cast<size_t>(st.st_size) + 1);
  }
  // What is not a regular file tells no size: it is read until it ends,
  // passes the limit, or shows a byte that no message file holds. The room
  // grows by half again each time, and never past the limit and a chunk.
  constexpr size_t kChunk = size_t{1} << 16;
  size_t size = 0;
  for (;;) {
    if (size + kChunk > text->capacity()) {
      text->reserve(std::min(maxSize + kChunk, std::max(text->capacity() / 2 * 3, size + kChunk)));
    }
    text->resize(size + kChunk);
    const size_t n = std::fread(&(*text)[size], 1, kChunk, f.get());
    if (const void* nul = std::memchr(&(*text)[size], '\0', n)) {
      const size_t at = static_cast<size_t>(static_cast<const char*>(nul) - text->data());
      text->resize(at);
      return NulByte(err, path, *text, at);
    }
    size += n;
    text->resize(size);
    if (size > maxSize) return TooLarge(err, path, maxSize);
    if (n < kChunk) break;
  }
  if (std::ferror(f.get())) {
    IoFailure(err, errno, "read", path);
    return false;
  }
  return true;
}

int WriteFileWith(TextWriter write, CMsg* msg, const char* path, MsgTextError* err) {
  if (!path || !*path) return SetError(err, MSGTEXT_E_ARG, 0, 0, "no file name");
  try {
    std::string text;
    const int rc = write(msg, &text, err);
    return rc != MSGTEXT_OK ? rc : ReplaceFile(path, text, err);
  } catch (const std::bad_alloc&) {
    return SetError(err, MSGTEXT_E_NOMEM, 0, 0, "out of memory");
  }
}

CMsg* ReadFileWith(TextReader read, const char* path, MsgTextError* err, size_t maxSize) {
  if (!path || !*path) {
    SetError(err, MSGTEXT_E_ARG, 0, 0, "no file name");
    return nullptr;
  }
  try {
    std::string text;
    if (!ReadWholeFile(path, &text, err, maxSize)) return nullptr;
    return read(text.data(), text.size(), err);
  } catch (const std::bad_alloc&) {
    SetError(err, MSGTEXT_E_NOMEM, 0, 0, "out of memory");
    return nullptr;
  }
}

}  // namespace pricemsg::text

int MA_WriteMsgFile(CMsg* msg, const char* path, MsgTextError* err) {
  return pricemsg::text::WriteFileWith(MA_WriteMsgText, msg, path, err);
}

bool MA_IsMsgJson(const char* text, size_t size) {
  size_t i = pricemsg::text::ByteOrderMark(text, size);
  while (i < size && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
  return i < size && text[i] == '{';
}

namespace {

// A message file's content in either form.
CMsg* ReadEitherForm(const char* text, size_t size, MsgTextError* err) {
  return MA_IsMsgJson(text, size) ? MA_ReadMsgJson(text, size, err)
                                  : MA_ReadMsgText(text, size, err);
}

}  // namespace

CMsg* MA_ReadMsgFile(const char* path, MsgTextError* err, size_t maxSize) {
  return pricemsg::text::ReadFileWith(ReadEitherForm, path, err, maxSize);
}

int MA_LoadMsgFile(const char* path, CMsgBase* obj, MsgTextError* err, size_t maxSize) {
  using pricemsg::schema::FindClass;
  using pricemsg::text::ClearError;
  if (!path || !*path || !obj) {
    return SetError(err, MSGTEXT_E_ARG, 0, 0, "no %s", obj ? "file name" : "object to load");
  }
  try {
    std::unique_ptr<CMsg> tree;
    {
      std::string text;
      if (!pricemsg::text::ReadWholeFile(path, &text, err, maxSize)) {
        return err ? err->code : MSGTEXT_E_IO;
      }
      // The reader's own position goes to the caller, so the code is told
      // from a local copy of the error.
      MsgTextError read;
      tree.reset(ReadEitherForm(text.data(), text.size(), &read));
      if (!tree) {
        if (err) *err = read;
        return read.code;
      }
    }
    if (tree->msgnum != obj->msgnum) {
      // The reader took the file's class from the schema; the object's may
      // be of no class at all.
      const pricemsg::schema::ClassInfo* held = FindClass(tree->msgnum);
      return SetError(err, MSGTEXT_E_CLASS, 0, 0, "the file holds %s (M%d), not %s (M%d)",
                      held ? held->name : "a message", tree->msgnum, obj->msgname.ToStr(),
                      obj->msgnum);
    }
    const int rc = obj->Load(tree.get());
    if (rc < 0) {
      return SetError(err, MSGTEXT_E_LOAD, 0, 0, "%s (M%d) Load failed (code %d): %s",
                      obj->msgname.ToStr(), obj->msgnum, rc, obj->errtext.ToStr());
    }
  } catch (const std::bad_alloc&) {
    return SetError(err, MSGTEXT_E_NOMEM, 0, 0, "out of memory");
  }
  ClearError(err);
  return MSGTEXT_OK;
}
