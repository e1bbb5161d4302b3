#pragma once

#include <QByteArray>

// Ed25519 as Sparkle's EdDSA signatures use it: a 32-byte seed is the secret, a 32-byte public
// key (the bundle's "SUPublicEDKey" in base64) checks 64-byte detached signatures.
namespace Ed25519 {

constexpr qsizetype seedSize = 32;
constexpr qsizetype publicKeySize = 32;
constexpr qsizetype signatureSize = 64;

// A new random seed.
QByteArray newSeed();
// The public key of a seed; empty when `seed` is not 32 bytes.
QByteArray publicKey(const QByteArray &seed);
// The detached signature of `message`; empty when `seed` is not 32 bytes.
QByteArray sign(const QByteArray &seed, const QByteArray &message);
// True only for a 64-byte signature of exactly `message` by the 32-byte `publicKey`.
bool verify(const QByteArray &message, const QByteArray &signature, const QByteArray &publicKey);

} // namespace Ed25519
