#include "updates/ed25519.h"

#include <sodium.h>

#include <stdexcept>

namespace {

// libsodium's own initialisation is idempotent and thread-safe; a static keeps it to one call.
void ensureSodium()
{
    static const bool ready = sodium_init() >= 0;
    if (!ready)
        throw std::runtime_error("libsodium could not be initialised");
}

const unsigned char *bytes(const QByteArray &data)
{
    return reinterpret_cast<const unsigned char *>(data.constData());
}

unsigned char *bytes(QByteArray &data)
{
    return reinterpret_cast<unsigned char *>(data.data());
}

// The 64-byte secret key libsodium signs with (seed followed by public key), wiped after use.
class SecretKey {
public:
    explicit SecretKey(const QByteArray &seed)
    {
        crypto_sign_seed_keypair(publicKey, secretKey, bytes(seed));
    }
    ~SecretKey() { sodium_memzero(secretKey, sizeof secretKey); }
    SecretKey(const SecretKey &) = delete;
    SecretKey &operator=(const SecretKey &) = delete;

    unsigned char publicKey[crypto_sign_PUBLICKEYBYTES] {};
    unsigned char secretKey[crypto_sign_SECRETKEYBYTES] {};
};

static_assert(Ed25519::seedSize == crypto_sign_SEEDBYTES);
static_assert(Ed25519::publicKeySize == crypto_sign_PUBLICKEYBYTES);
static_assert(Ed25519::signatureSize == crypto_sign_BYTES);

} // namespace

QByteArray Ed25519::newSeed()
{
    ensureSodium();
    QByteArray seed(seedSize, Qt::Uninitialized);
    randombytes_buf(bytes(seed), size_t(seed.size()));
    return seed;
}

QByteArray Ed25519::publicKey(const QByteArray &seed)
{
    if (seed.size() != seedSize)
        return {};
    ensureSodium();
    const SecretKey key(seed);
    return QByteArray(reinterpret_cast<const char *>(key.publicKey), publicKeySize);
}

QByteArray Ed25519::sign(const QByteArray &seed, const QByteArray &message)
{
    if (seed.size() != seedSize)
        return {};
    ensureSodium();
    const SecretKey key(seed);
    QByteArray signature(signatureSize, Qt::Uninitialized);
    crypto_sign_detached(bytes(signature), nullptr, bytes(message), size_t(message.size()), key.secretKey);
    return signature;
}

bool Ed25519::verify(const QByteArray &message, const QByteArray &signature, const QByteArray &publicKey)
{
    if (signature.size() != signatureSize || publicKey.size() != publicKeySize)
        return false;
    ensureSodium();
    return crypto_sign_verify_detached(bytes(signature), bytes(message), size_t(message.size()),
                                       bytes(publicKey)) == 0;
}
