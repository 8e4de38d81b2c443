// A browser with the phone's page in it, for tests.
import { readFile } from "node:fs/promises";
import { createServer } from "node:http";
import { extname, join, normalize } from "node:path";
import { fileURLToPath } from "node:url";
import { chromium } from "playwright-core";

const types = { ".html": "text/html", ".js": "text/javascript", ".css": "text/css", ".svg": "image/svg+xml" };
const web = fileURLToPath(new URL("../../Phone/web", import.meta.url));
const tests = fileURLToPath(new URL(".", import.meta.url));

// Serves the page, and this folder below /test/.
export async function serve() {
  const server = createServer(async (request, response) => {
    const path = normalize(decodeURIComponent(new URL(request.url, "http://host").pathname));
    const file = path.startsWith("/test/") ? join(tests, path.slice(6)) : join(web, path.endsWith("/") ? `${path}index.html` : path);
    try {
      const body = await readFile(file);
      response.writeHead(200, { "Content-Type": types[extname(file)] ?? "application/octet-stream" }).end(body);
    } catch {
      response.writeHead(404).end();
    }
  });
  await new Promise((resolve) => server.listen(0, "127.0.0.1", resolve));
  return {
    url: `http://127.0.0.1:${server.address().port}`,
    stop: () => { server.closeAllConnections?.(); server.close(); },
  };
}

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
