#include "platform/vlibc/vlibc_crypt.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/dir_lock.h"
#include "platform/vlibc/unique_fd.h"
#include "platform/vlibc/vlibc_error.h"

namespace {

constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;
constexpr const char* kKeyDir = QRIX_PLATFORM_CONF_DIR;

// Rounds of the Feistel network. Four make a strong pseudo-random permutation when the halves
// are wide; a short secret has narrow halves (a nibble each for one byte), where
// format-preserving ciphers use ten. Ten cost a few microseconds.
constexpr int kRounds = 10;
constexpr char kKdfContext[crypto_kdf_CONTEXTBYTES + 1] = "qrixsecr";

// The key, wiped when it goes.
struct Key {
  unsigned char bytes[crypto_kdf_KEYBYTES];
  Key() = default;
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  ~Key() { sodium_memzero(bytes, sizeof bytes); }
};

// The keys of the round function's two primitives, derived from the machine key.
struct RoundKeys {
  unsigned char hash[crypto_generichash_KEYBYTES];
  unsigned char stream[crypto_stream_xchacha20_KEYBYTES];
  explicit RoundKeys(const Key& key) {
    crypto_kdf_derive_from_key(hash, sizeof hash, 1, kKdfContext, key.bytes);
    crypto_kdf_derive_from_key(stream, sizeof stream, 2, kKdfContext, key.bytes);
  }
  RoundKeys(const RoundKeys&) = delete;
  RoundKeys& operator=(const RoundKeys&) = delete;
  ~RoundKeys() {
    sodium_memzero(hash, sizeof hash);
    sodium_memzero(stream, sizeof stream);
  }
};

// Wipes and releases a scratch buffer that held plain text or key material.
struct Scratch {
  explicit Scratch(size_t n) : bytes(n == 0 ? 1 : n) {}
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { sodium_memzero(bytes.data(), bytes.size()); }
  std::vector<unsigned char> bytes;
};

// The round function: `mask` := h bytes of XChaCha20's key stream under a nonce that keyed
// BLAKE2b derives from the round, the text's length n and the other half `from`.
void RoundMask(const RoundKeys& keys, int round, size_t n, const unsigned char* from, size_t h,
               unsigned char* mask) {
  unsigned char head[9] = {static_cast<unsigned char>(round)};
  for (int i = 0; i < 8; ++i) {
    head[1 + i] = static_cast<unsigned char>(static_cast<uint64_t>(n) >> (8 * i));
  }
  unsigned char nonce[crypto_stream_xchacha20_NONCEBYTES];
  crypto_generichash_state state;
  crypto_generichash_init(&state, keys.hash, sizeof keys.hash, sizeof nonce);
  crypto_generichash_update(&state, head, sizeof head);
  crypto_generichash_update(&state, from, h);
  crypto_generichash_final(&state, nonce, sizeof nonce);
  crypto_stream_xchacha20(mask, h, nonce, keys.stream);
  sodium_memzero(&state, sizeof state);
  sodium_memzero(nonce, sizeof nonce);
}

// Enciphers (`forward`) or deciphers the n bytes of `text` in place. The halves are h bytes
// each; for an odd n the middle byte's high nibble ends the left half and its low nibble the
// right, so both halves end in a byte that holds only four bits.
void Permute(const RoundKeys& keys, unsigned char* text, size_t n, bool forward) {
  if (n == 0) {
    return;
  }
  const size_t h = (n + 1) / 2;
  const bool odd = n % 2 != 0;
  Scratch left(h);
  Scratch right(h);
  Scratch mask(h);
  std::memcpy(left.bytes.data(), text, n / 2);
  std::memcpy(right.bytes.data(), text + h, n / 2);
  if (odd) {
    left.bytes[h - 1] = text[h - 1] >> 4;
    right.bytes[h - 1] = text[h - 1] & 0x0F;
  }
  for (int i = 0; i < kRounds; ++i) {
    const int round = forward ? i : kRounds - 1 - i;
    // Even rounds change the right half from the left one, odd rounds the other way round.
    const Scratch& from = round % 2 == 0 ? left : right;
    Scratch& to = round % 2 == 0 ? right : left;
    RoundMask(keys, round, n, from.bytes.data(), h, mask.bytes.data());
    if (odd) {
      mask.bytes[h - 1] &= 0x0F;
    }
    for (size_t j = 0; j < h; ++j) {
      to.bytes[j] ^= mask.bytes[j];
    }
  }
  std::memcpy(text, left.bytes.data(), n / 2);
  std::memcpy(text + h, right.bytes.data(), n / 2);
  if (odd) {
    text[h - 1] = static_cast<unsigned char>(left.bytes[h - 1] << 4 | right.bytes[h - 1]);
  }
}

// The failure result of both functions: empty output, error state set.
int Fail(int code, char* out, int size) {
  if (out != nullptr && size > 0) {
    out[0] = '\0';
  }
  VLIBCErrSet(code);
  return 0;
}

// 1 key read, 0 no key file, -1 a key file that must not be used (logged).
int ReadKey(Key* key) {
  qrix::UniqueFd fd(::open(VLIBC_CRYPT_KEY_FILE, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd.Valid()) {
    if (errno == ENOENT) {
      return 0;
    }
    syslog(LOG_ERR, "cannot open crypt key %s: %s", VLIBC_CRYPT_KEY_FILE, std::strerror(errno));
    return -1;
  }
  struct stat st {};
  if (::fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode) ||
      st.st_size != static_cast<off_t>(sizeof key->bytes)) {
    syslog(LOG_ERR, "crypt key %s is not a %zu-byte file: refused", VLIBC_CRYPT_KEY_FILE,
           sizeof key->bytes);
    return -1;
  }
  if ((st.st_mode & 07777 & ~static_cast<mode_t>(0600)) != 0) {
    syslog(LOG_ERR, "crypt key %s has mode %04o, wider than 0600: refused", VLIBC_CRYPT_KEY_FILE,
           static_cast<unsigned>(st.st_mode & 07777));
    return -1;
  }
  size_t got = 0;
  while (got < sizeof key->bytes) {
    const ssize_t n = ::read(fd.Get(), key->bytes + got, sizeof key->bytes - got);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      syslog(LOG_ERR, "cannot read crypt key %s", VLIBC_CRYPT_KEY_FILE);
      return -1;
    }
    got += static_cast<size_t>(n);
  }
  return 1;
}

// Reads the key, making it first when the machine has none. Creators hold the directory lock,
// so two first uses agree on one key; readers outside it see no file or a whole one.
bool LoadKey(Key* key) {
  int found = ReadKey(key);
  if (found == 0) {
    if (const int err = qrix::MakeDirectories(kKeyDir)) {
      syslog(LOG_ERR, "cannot create %s: %s", kKeyDir, std::strerror(err));
      return false;
    }
    const qrix::DirectoryLock lock(kKeyDir);
    if (!lock.Held()) {
      syslog(LOG_ERR, "cannot lock %s: %s", kKeyDir, std::strerror(errno));
      return false;
    }
    found = ReadKey(key);
    if (found == 0) {
      randombytes_buf(key->bytes, sizeof key->bytes);
      const std::string_view bytes(reinterpret_cast<const char*>(key->bytes), sizeof key->bytes);
      if (const int err = qrix::PublishFile(VLIBC_CRYPT_KEY_FILE, bytes, 0600)) {
        syslog(LOG_ERR, "cannot create crypt key %s: %s", VLIBC_CRYPT_KEY_FILE, std::strerror(err));
        return false;
      }
      found = 1;
    }
  }
  return found == 1;
}

bool SodiumReady() {
  static const bool ready = sodium_init() >= 0;
  return ready;
}

}  // namespace

extern "C" {

int VLIBCCryptSzEncrypt(const char* plain, char* out, int size) {
  if (plain == nullptr || out == nullptr || size <= 0) {
    return Fail(ERR_BAD_PARAMETERS, out, size);
  }
  const size_t n = std::strlen(plain);
  if (sodium_base64_ENCODED_LEN(n, kVariant) > static_cast<size_t>(size)) {
    return Fail(ERR_BAD_PARAMETERS, out, size);
  }
  Key key;
  if (!SodiumReady() || !LoadKey(&key)) {
    return Fail(ERR_CRYPT, out, size);
  }
  Scratch text(n);
  std::memcpy(text.bytes.data(), plain, n);
  Permute(RoundKeys(key), text.bytes.data(), n, true);
  sodium_bin2base64(out, static_cast<size_t>(size), text.bytes.data(), n, kVariant);
  return 1;
}

int VLIBCCryptSzDecrypt(const char* text, char* out, int size) {
  if (text == nullptr || out == nullptr || size <= 0) {
    return Fail(ERR_BAD_PARAMETERS, out, size);
  }
  const size_t len = std::strlen(text);
  Scratch plain(len / 4 * 3 + 3);
  size_t n = 0;
  const char* end = nullptr;
  if (!SodiumReady() ||
      sodium_base642bin(plain.bytes.data(), plain.bytes.size(), text, len, nullptr, &n, &end,
                        kVariant) != 0 ||
      end != text + len) {
    return Fail(ERR_CRYPT, out, size);
  }
  if (n + 1 > static_cast<size_t>(size)) {
    return Fail(ERR_BAD_PARAMETERS, out, size);
  }
  Key key;
  if (!LoadKey(&key)) {
    return Fail(ERR_CRYPT, out, size);
  }
  Permute(RoundKeys(key), plain.bytes.data(), n, false);
  // Text under another key deciphers to noise, which may hold a NUL: not a secret of ours.
  if (std::memchr(plain.bytes.data(), '\0', n) != nullptr) {
    return Fail(ERR_CRYPT, out, size);
  }
  std::memcpy(out, plain.bytes.data(), n);
  out[n] = '\0';
  return 1;
}

}  // extern "C"
