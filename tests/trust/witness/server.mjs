// A web server on loopback for the files of one repository.
import { createServer } from 'node:http';

// `answer(path)` returns bytes, null for a missing file, or 'endless'.
export async function serve(answer) {
  const server = createServer((request, response) => {
    const found = answer(decodeURIComponent(new URL(request.url, 'http://127.0.0.1').pathname.slice(1)));
    if (found === null) return response.writeHead(404).end();
    response.writeHead(200);
    if (found !== 'endless') return response.end(found);
    const piece = Buffer.alloc(1 << 16, ' ');
    const more = () => {
      while (!response.destroyed && response.write(piece));
    };
    response.on('drain', more);
    more();
  });
  await new Promise((ready) => server.listen(0, '127.0.0.1', ready));
  return {
    url: `http://127.0.0.1:${server.address().port}`,
    stop() {
      server.closeAllConnections();
      server.close();
    },
  };
}
