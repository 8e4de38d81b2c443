// What this browser keeps, in IndexedDB. The identity's private key is kept as a CryptoKey that scripts can
// use but not read.
//   identity { privateKey, publicKey, id }, agents [{ id, publicKey, name }], settings {…}, account {…}, owner {…}

let database;

function open() {
  database ??= new Promise((resolve, reject) => {
    const request = indexedDB.open("orvel", 1);
    request.onupgradeneeded = () => request.result.createObjectStore("state");
    request.onsuccess = () => resolve(request.result);
    request.onerror = () => reject(request.error);
  });
  return database;
}

async function inStore(mode, step) {
  const transaction = (await open()).transaction("state", mode);
  const request = step(transaction.objectStore("state"));
  return new Promise((resolve, reject) => {
    transaction.oncomplete = () => resolve(request.result);
    transaction.onerror = transaction.onabort = () => reject(transaction.error);
  });
}

export const load = (name) => inStore("readonly", (store) => store.get(name));
export const keep = (name, value) => inStore("readwrite", (store) => store.put(value, name));
export const drop = (name) => inStore("readwrite", (store) => store.delete(name));
export const dropAll = () => inStore("readwrite", (store) => store.clear());
