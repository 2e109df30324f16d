// cipher.h - the ciphers of Crypt, Uncrypt, fCrypt and fUncrypt.
//
// ScrambleCipher (mode 1, cryptFast) is a byte-mixing cipher of this
// component's own with a 16-byte key; Rc5CbcCipher is RC5-32 in CBC mode
// with 8 (mode 2, cryptSecure) or 16 (mode 3, cryptRC516) rounds.  Both take
// their key from the password converted to code page 1252.  Each call makes
// its own cipher object and owns it through a unique_ptr.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace kp::transforms {

constexpr int32_t kCryptNone = 0;
constexpr int32_t kCryptFast = 1;
constexpr int32_t kCryptSecure = 2;
constexpr int32_t kCryptRc516 = 3;

using Key16 = std::array<uint8_t, 16>;

class Cipher {
  public:
    virtual ~Cipher() = default;
    // Sets the key from 16 raw bytes; false only when memory runs out.
    virtual bool set_key(const Key16& key);
    // Sets the key from up to 16 raw bytes, the rest zero.
    bool set_key_prefix(std::span<const uint8_t> bytes);
    // Derives a key from a UTF-16 password (converted to code page 1252)
    // into `out`; an empty password derives nothing and returns false.
    bool derive_key(std::u16string_view password, Key16& out) const;
    // Sets the key from a password; false only when the key cannot be set.
    virtual bool set_password(std::u16string_view password) = 0;
    // Enciphers or deciphers in place, with `key` replacing the object's key
    // for this call when given.
    virtual void encrypt(std::span<uint8_t> data, const Key16* key = nullptr) = 0;
    virtual void decrypt(std::span<uint8_t> data, const Key16* key = nullptr) = 0;
    // Derives the 16-byte key of an 8-bit password.
    virtual void derive(std::span<const uint8_t> password, Key16& out) const = 0;

    const Key16& key() const { return key_; }

  protected:
    Key16 key_{}; // zero until a key is set
};

// The cipher of mode 1, 2 or 3; null for any other mode.
std::unique_ptr<Cipher> make_cipher(int32_t mode);

// ---- ScrambleCipher -------------------------------------------------------

class ScrambleCipher : public Cipher {
  public:
    // The fixed initial block of the key derivation: part of the format of
    // every value enciphered in mode 1, never to be changed.
    static constexpr Key16 kInitialBlock = {0x4B, 0x9E, 0x37, 0x12, 0xD5, 0x60, 0xA8, 0x2F,
                                            0x71, 0xC3, 0x08, 0xE4, 0x5A, 0x96, 0x1D, 0xB7};

    // Derives straight into the key; true whatever happened (an empty
    // password leaves the key as it was).
    bool set_password(std::u16string_view password) override;
    void encrypt(std::span<uint8_t> data, const Key16* key = nullptr) override;
    void decrypt(std::span<uint8_t> data, const Key16* key = nullptr) override;
    void derive(std::span<const uint8_t> password, Key16& out) const override;

    // The low byte of the key fold (sum of the four little-endian words,
    // then (s + (s >> 16)) & 0xFFFF) that enciphers a single byte.
    static uint8_t fold(const Key16& key);
    static void scramble(std::span<uint8_t> data, const Key16& key);
    static void unscramble(std::span<uint8_t> data, const Key16& key);
};

// ---- Rc5CbcCipher ---------------------------------------------------------

// The compression function of the key digest: SHA-0's message schedule
// (no rotation) with SHA-1's initial values, round functions and constants,
// message words read little-endian.  `sha1` switches to SHA-1's own schedule
// and big-endian words, which the tests use to check the rounds.
void digest_compress(uint32_t state[5], const uint8_t block[64], bool sha1 = false);
// The key digest of an 8-bit password: blocks of ceil((L + 4) / 64) x 64
// zero bytes holding the password, 0x01 right after it and the length L as a
// little-endian u32 in the last four bytes (written last, so it covers the
// 0x01 when L + 4 is a multiple of 64); the key is h0..h3 little-endian.
Key16 rc5_key_digest(std::span<const uint8_t> password);

// RC5-32 core: key expansion of a 16-byte key for `rounds` rounds, and the
// block rounds in the usual (A, B) word order.
std::vector<uint32_t> rc5_expand(const Key16& key, int rounds);
void rc5_encrypt_words(uint32_t& a, uint32_t& b, const uint32_t* s, int rounds);
void rc5_decrypt_words(uint32_t& a, uint32_t& b, const uint32_t* s, int rounds);

class Rc5CbcCipher : public Cipher {
  public:
    explicit Rc5CbcCipher(int rounds) : rounds_(rounds) {}
    bool set_key(const Key16& key) override;
    bool set_password(std::u16string_view password) override;
    // 8-byte blocks whose first little-endian word is RC5's B and second its
    // A, chained CBC from a zero vector; a tail of 1..7 bytes is chained byte
    // by byte (on byte 0 of the last block for the first) and enciphered by
    // a 4-bit RC5 on its nibbles.
    void encrypt(std::span<uint8_t> data, const Key16* key = nullptr) override;
    void decrypt(std::span<uint8_t> data, const Key16* key = nullptr) override;
    void derive(std::span<const uint8_t> password, Key16& out) const override;
    int rounds() const { return rounds_; }

  private:
    const uint32_t* table(const Key16* key, std::vector<uint32_t>& scratch) const;
    int rounds_;
    std::vector<uint32_t> s_;
};

} // namespace kp::transforms
