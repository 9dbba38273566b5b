/* The system's cipher for secrets kept in settings files (server passwords and the like).
 *
 * A keyed permutation of the whole secret that keeps its length: a Feistel network over the two
 * halves of the secret (an odd length splits its middle byte into two nibbles), whose round
 * function is XChaCha20's key stream under a nonce that keyed BLAKE2b derives from the other
 * half, the round and the length. Every byte of the text depends on every byte of the secret and
 * on the key, so knowing one secret and its text says nothing about another text. Written as
 * Base64 (the original alphabet, with padding), a secret of n bytes always becomes exactly
 * ((n + 2) / 3) * 4 characters and fits a buffer of that size plus one.
 * The price of that fixed size is that there is no room for a random nonce: equal secrets give
 * equal texts. It keeps secrets out of plain sight and useless without the key file; it does not
 * protect against someone who can read the key file.
 *
 * The key is 32 random bytes in VLIBC_CRYPT_KEY_FILE, made on first use with mode 0600. A key
 * file that is not a regular file of 32 bytes, or whose mode grants more than 0600, is refused:
 * nothing is enciphered under a key others may have read. */
#ifndef QRIX_PLATFORM_VLIBC_VLIBC_CRYPT_H_
#define QRIX_PLATFORM_VLIBC_VLIBC_CRYPT_H_

#include "platform/qrix_export.h"
#include "platform/system/qrix_paths.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VLIBC_CRYPT_KEY_FILE QRIX_PLATFORM_CONF_DIR "/crypt.key"

/* Enciphers the C string `plain` into `out` as a NUL-terminated text. `size` is the size of
 * `out`; it must be at least ((strlen(plain) + 2) / 3) * 4 + 1.
 * Returns non-zero on success; 0 on failure, with `out` empty (when size > 0) and the error
 * state set (ERR_BAD_PARAMETERS for a buffer too small, ERR_CRYPT for the key or the cipher). */
QRIX_EXPORT int VLIBCCryptSzEncrypt(const char* plain, char* out, int size);

/* Deciphers a text of VLIBCCryptSzEncrypt back into `out`, which needs the secret's length
 * plus one byte (the text's length * 3 / 4 + 1 is always enough). Any Base64 text deciphers to
 * some bytes of its length: a text made under another key, or by another cipher, gives noise,
 * refused only when it holds a NUL.
 * Returns non-zero on success; 0 on failure, with `out` empty (when size > 0) and the error
 * state set: a text that is not Base64 or does not decipher to a C string is ERR_CRYPT. */
QRIX_EXPORT int VLIBCCryptSzDecrypt(const char* text, char* out, int size);

#ifdef __cplusplus
}
#endif

#endif /* QRIX_PLATFORM_VLIBC_VLIBC_CRYPT_H_ */
