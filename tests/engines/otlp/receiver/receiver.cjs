// A receiver of OTLP over HTTP for tests: decodes requests with the published definitions.
//
//   node receiver.cjs [KEY.pem CERTIFICATE.pem]
//
// Says {"port":N}; then, for each request, a line of JSON: path, headers, bytes, and the request as
// it was decoded, or why it could not be. Lines of its input are answers for the requests to come, one
// each: {"status":503,"headers":{...},"body":"..."}, {"hang":true}, {"hangUp":true} (the connection is
// closed without an answer), {"hangUp":true,"decode":true} (the same once it is decoded). It says
// "planned" for each. Without a plan it answers 200 and {}. An answer with {"containing":"text"} is one
// for all requests whose body contains that, until there is another of the kind.
'use strict';
const fs = require('node:fs');
const http = require('node:http');
const https = require('node:https');
const readline = require('node:readline');
const zlib = require('node:zlib');
const path = require('node:path');
const { createRequire } = require('node:module');

// Its packages stand in the working directory.
const load = createRequire(path.join(process.cwd(), 'receiver.cjs'));
const root = load('@opentelemetry/otlp-transformer/build/src/generated/root.js');
const Request = root.opentelemetry.proto.collector.logs.v1.ExportLogsServiceRequest;

// What is in the one and not in the other, by its place; numbers and their texts are alike.
function lost(sent, decoded, place) {
  if (sent === null || typeof sent !== 'object')
    return String(sent) === String(decoded) ? [] : [`${place}: ${sent} became ${decoded}`];
  if (decoded === null || typeof decoded !== 'object') return [`${place} is not decoded`];
  return Object.keys(sent).flatMap((key) => lost(sent[key], decoded[key], `${place}.${key}`));
}

// OTLP writes identities in hexadecimal, where the JSON of protobuf has base64.
function withBytes(json) {
  return JSON.parse(JSON.stringify(json), (key, value) =>
    key === 'traceId' || key === 'spanId' ? Buffer.from(value, 'hex').toString('base64') : value);
}

function decode(body) {
  const json = withBytes(JSON.parse(body));
  const fault = Request.verify(Request.fromObject(json));
  if (fault) throw new Error(fault);
  // Through the bytes of the protocol and back.
  const message = Request.decode(Request.encode(Request.fromObject(json)).finish());
  const decoded = Request.toObject(message, { longs: String, bytes: String, json: true });
  const missing = lost(json, decoded, 'request');
  if (missing.length > 0) throw new Error(missing.slice(0, 5).join('; '));
  return decoded;
}

const plans = [];
let standing = { containing: null };

function receive(request, response) {
  const pieces = [];
  let plan = plans.shift() ?? {};
  const say = (what) => process.stdout.write(JSON.stringify(what) + '\n');
  request.on('data', (piece) => pieces.push(piece));
  request.on('end', () => {
    const told = { path: request.url, method: request.method, headers: request.headers };
    const packed = Buffer.concat(pieces);
    told.bytes = packed.length;
    try {
      const body = zlib.gunzipSync(packed);
      told.size = body.length;
      if (standing.containing !== null && body.includes(standing.containing)) plan = standing;
      told.request = decode(body.toString('utf8'));
    } catch (error) {
      told.error = String(error);
    }
    say(told);
    if (plan.hang) return;
    if (plan.hangUp) return request.socket.destroy();
    response.writeHead(plan.status ?? 200, { 'Content-Type': 'application/json', ...plan.headers });
    response.end(plan.body ?? '{}');
  });
}

const [key, certificate] = process.argv.slice(2);
const server = key
  ? https.createServer({ key: fs.readFileSync(key), cert: fs.readFileSync(certificate) }, receive)
  : http.createServer(receive);
server.keepAliveTimeout = 600000;
server.on('tlsClientError', () => {});
server.listen(0, '127.0.0.1', () => console.log(JSON.stringify({ port: server.address().port })));
readline.createInterface({ input: process.stdin }).on('line', (line) => {
  const plan = JSON.parse(line);
  if (plan.containing === undefined) plans.push(plan);
  else standing = plan;
  console.log('planned');
});
