// Serves this folder to browsers on this machine: node serve.mjs [PORT]. Any server of static files does as
// well; the headers below are worth having there, too.
import { readFile } from "node:fs/promises";
import { createServer } from "node:http";
import { extname, join, normalize } from "node:path";
import { fileURLToPath } from "node:url";

const types = {
  ".html": "text/html; charset=utf-8",
  ".js": "text/javascript",
  ".css": "text/css",
  ".svg": "image/svg+xml",
  ".webmanifest": "application/manifest+json",
};
const headers = {
  "Cache-Control": "no-cache",
  "Content-Security-Policy": "frame-ancestors 'none'",
  "Cross-Origin-Opener-Policy": "same-origin",
  "Referrer-Policy": "no-referrer",
  "X-Content-Type-Options": "nosniff",
};
const here = fileURLToPath(new URL(".", import.meta.url));

// Resolves to { url, stop() }. `more` has other folders by their first path component. Loopback only.
export async function serve(port = 0, more = {}) {
  const server = createServer(async (request, response) => {
    try {
      // What is above / is / again, so nothing outside the folders is served.
      let path = normalize(decodeURIComponent(new URL(request.url, "http://host").pathname));
      if (path.endsWith("/")) path += "index.html";
      const [, first] = path.split("/");
      const file = Object.hasOwn(more, first) ? join(more[first], path.slice(first.length + 1)) : join(here, path);
      const body = await readFile(file);
      response.writeHead(200, { ...headers, "Content-Type": types[extname(file)] ?? "application/octet-stream" }).end(body);
    } catch {
      response.writeHead(404, headers).end();
    }
  });
  await new Promise((resolve, reject) => server.once("error", reject).listen(port, "127.0.0.1", resolve));
  return {
    url: `http://127.0.0.1:${server.address().port}`,
    stop: () => {
      server.closeAllConnections();
      server.close();
    },
  };
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  try {
    console.log((await serve(Number(process.argv[2] ?? 8080))).url);
  } catch (error) {
    console.error(`orvel: cannot serve: ${error.message}`);
    process.exit(1);
  }
}
