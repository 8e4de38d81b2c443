// A browser with the phone's page in it, for tests.
import { fileURLToPath } from "node:url";
import { chromium } from "playwright-core";
import { serve as servePage } from "../../Phone/web/serve.mjs";

// Serves the page, and this folder below /test/.
export const serve = () => servePage(0, { test: fileURLToPath(new URL(".", import.meta.url)) });

// Debian's, or the one of ORVEL_BROWSER.
export function launch(options = {}) {
  const flags = [
    // Addresses instead of names that only multicast DNS knows; two pages of one machine may meet.
    "--disable-features=WebRtcHideLocalIpsWithMdns",
    "--allow-loopback-in-peer-connection",
    "--autoplay-policy=user-gesture-required",
  ];
  return chromium.launch({
    executablePath: process.env.ORVEL_BROWSER ?? "/usr/bin/chromium",
    chromiumSandbox: process.getuid() !== 0,
    args: flags,
    ...options,
  });
}

// Opens the page and takes an identity: `identity` is what the import dialog takes, a JSON text or a file's
// bytes, and may be several. Whatever the page complains about ends up in `complaints`, whom it asks for
// anything in `hosts`.
export async function openPhone(context, address, ...identity) {
  const page = await context.newPage();
  const complaints = [];
  const hosts = new Set();
  page.on("request", (request) => hosts.add(new URL(request.url()).host));
  page.on("websocket", (socket) => hosts.add(new URL(socket.url()).host));
  page.on("pageerror", (error) => complaints.push(String(error)));
  page.on("console", (message) => message.type() === "error" && complaints.push(message.text()));
  await page.goto(address);
  await page.waitForFunction(() => document.body.dataset.view === "home");
  if (identity.length) {
    await page.evaluate(async (pieces) => {
      const { importPhone } = await import("/app.js");
      await importPhone(...pieces.map((piece) => (typeof piece === "string" ? piece : Uint8Array.from(piece))));
    }, identity.map((piece) => (typeof piece === "string" ? piece : [...piece])));
  }
  return { page, complaints, hosts };
}
