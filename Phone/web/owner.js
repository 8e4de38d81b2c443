// Is it the phone's owner who holds it? Asked before a computer in standby is unlocked: by the device's
// fingerprint, face or PIN where that was switched on, else by a question that the page asks itself.
// No server is involved: the device's own answer is what counts.

const random = () => crypto.getRandomValues(new Uint8Array(32));

export async function canAsk() {
  return (await globalThis.PublicKeyCredential?.isUserVerifyingPlatformAuthenticatorAvailable?.().catch(() => false)) ?? false;
}

// Sets it up; returns what `isOwner` needs, null when the person declined.
export async function enrol(name) {
  try {
    const credential = await navigator.credentials.create({
      publicKey: {
        challenge: random(),
        rp: { name: "Orvel" },
        user: { id: random(), name, displayName: name },
        pubKeyCredParams: [{ type: "public-key", alg: -7 }, { type: "public-key", alg: -257 }],
        authenticatorSelection: { authenticatorAttachment: "platform", userVerification: "required" },
      },
    });
    return { credentialID: new Uint8Array(credential.rawId) };
  } catch {
    return null;
  }
}

export async function isOwner({ credentialID }) {
  try {
    await navigator.credentials.get({
      publicKey: {
        challenge: random(),
        allowCredentials: [{ type: "public-key", id: credentialID }],
        userVerification: "required",
      },
    });
    return true;
  } catch {
    return false;
  }
}
