// Connections to proxies for clients that cannot authenticate there themselves: CONNECT, or a HEAD request that only
// authenticates, with KivAuth's headers on one socket.
'use strict';

const net = require('node:net');
const tls = require('node:tls');
const { AGAIN, CODES, DONE, OK } = require('./declarations');
const { KivError } = require('./errors');
const { Session } = require('./session');

const { KIV_NOT_YET: NOT_YET, KIV_REJECTED: REJECTED, KIV_UNSUPPORTED: UNSUPPORTED } = CODES;
const MOST_HEAD = 65536;
const MOST_QUESTIONS = 4;
const PATIENCE = 30000;

/** The decision for a URL. Throws where there is no route, or none that these clients can take. */
async function routeTo(session, url) {
  const decision = await session.resolve(url);
  const { kind, scheme, url: proxy, explanation } = decision;
  if (kind === 'none') throw new KivError('KIV_NO_ROUTE', `there is no route to ${new URL(url).origin}: ${explanation}`);
  if (kind === 'proxy' && scheme !== 'http' && scheme !== 'https') {
    throw new KivError('KIV_UNSUPPORTED', `${proxy} speaks ${scheme}, which this client does not; name it in leftOut`);
  }
  return decision;
}

/** A socket to the decision's proxy. A failure is reported. */
async function connectToProxy(session, decision) {
  const { host, port, scheme } = decision;
  const socket =
    scheme === 'https' ? tls.connect({ host, port, servername: net.isIP(host) ? '' : host }) : net.connect({ host, port });
  try {
    await until(socket, scheme === 'https' ? 'secureConnect' : 'connect');
  } catch (error) {
    session.report(decision, 'proxyUnreachable');
    throw error;
  }
  return socket;
}

function until(socket, event) {
  return new Promise((resolve, reject) => {
    const succeed = () => (done(), resolve());
    const fail = (error) => (done(), socket.destroy(), reject(error));
    const ended = () => fail(new KivError('KIV_REFUSED', 'the proxy closed the connection'));
    const timer = setTimeout(() => fail(new KivError('KIV_TIMED_OUT', 'the proxy does not answer')), PATIENCE);
    const done = () => {
      clearTimeout(timer);
      socket.off(event, succeed).off('error', fail).off('close', ended);
    };
    socket.once(event, succeed).once('error', fail).once('close', ended);
    if (socket.destroyed) ended();
  });
}

/** The head of the next answer: its status, and the values of some headers. Its body is read and dropped. */
async function readAnswer(socket, bodiless) {
  let received = Buffer.alloc(0);
  const more = async () => {
    let chunk;
    while ((chunk = socket.read()) === null) await until(socket, 'readable');
    received = Buffer.concat([received, chunk]);
  };
  let end;
  while ((end = received.indexOf('\r\n\r\n')) < 0) {
    if (received.length > MOST_HEAD) throw new KivError('KIV_REFUSED', 'the proxy does not answer as HTTP does');
    await more();
  }
  const [first, ...lines] = received.toString('latin1', 0, end).split('\r\n');
  const status = Number(/^HTTP\/1\.[01] ([0-9]{3})/.exec(first)?.[1]);
  if (!status) throw new KivError('KIV_REFUSED', 'the proxy does not answer as HTTP does');
  const values = (name) =>
    lines.filter((line) => line.toLowerCase().startsWith(`${name}:`)).map((line) => line.slice(name.length + 1).trim());
  const length = values('content-length')[0];
  const without = bodiless || status === 204 || status === 304;
  let rest = received.subarray(end + 4);
  const wishes = [...values('connection'), ...values('proxy-connection')].join();
  const keeps = first.startsWith('HTTP/1.1') ? !/\bclose\b/i.test(wishes) : /\bkeep-alive\b/i.test(wishes);
  if (status !== 200 && !without) {
    received = rest;
    while (received.length < Number(length ?? 0)) await more();
    rest = received.subarray(Number(length ?? 0));
  }
  return { status, rest, challenges: values('proxy-authenticate'), lasts: keeps && (without || length !== undefined) };
}

/**
 * Sends a request until the proxy wants no more authentication.
 * @returns the socket, the status of the last answer, and the header that was sent last.
 */
async function passProxy(session, decision, method, target, host) {
  for (let questions = 0; ; ++questions) {
    const before = Session.settlements(session);
    const result = await attempt(session, decision, method, target, host);
    if (result.ended === OK) return result;
    result.socket.destroy();
    if (result.ended === UNSUPPORTED || questions === MOST_QUESTIONS) throw refused(decision, result.challenges);
    if (result.ended === NOT_YET) await Session.settled(session, before);
  }
}

async function attempt(session, decision, method, target, host) {
  const next = Session.authenticate(session, decision);
  let socket = await connectToProxy(session, decision);
  let [ended, header] = await next('');
  let challenges = [];
  for (let sent = 0; ; ++sent) {
    const authorization = header ? `Proxy-Authorization: ${header}\r\n` : '';
    socket.write(`${method} ${target} HTTP/1.1\r\nHost: ${host}\r\nProxy-Connection: keep-alive\r\n${authorization}\r\n`);
    const answered = await readAnswer(socket, method === 'HEAD');
    if (answered.status !== 407) {
      if (answered.rest.length) socket.unshift(answered.rest);
      return { ended: OK, socket, status: answered.status, authorization: header };
    }
    ({ challenges } = answered);
    [ended, header] = await next(challenges.join('\n'));
    if (ended !== AGAIN && ended !== DONE) {
      if (![UNSUPPORTED, NOT_YET, REJECTED].includes(ended)) throw KivError.of(ended, `authentication to ${decision.url}`);
      return { ended, socket, challenges };
    }
    // Only the first challenge may close: what follows belongs to its connection.
    if (!answered.lasts && sent === 0) {
      socket.destroy();
      socket = await connectToProxy(session, decision);
    }
  }
}

function refused({ url }, challenges) {
  const schemes = challenges.map((challenge) => challenge.split(/[ ,]/)[0]).join(', ') || 'no scheme';
  if (/\b(basic|ntlm|negotiate)\b/i.test(schemes)) {
    return new KivError('KIV_CREDENTIALS_WANTED', `${url} wants credentials (${schemes}), and nobody gives any`);
  }
  return new KivError('KIV_UNSUPPORTED', `proxy authentication unsupported: ${url} offers ${schemes}`);
}

/** A socket that leads through the proxy to host:port. */
async function tunnel(session, decision, host, port) {
  const target = `${net.isIPv6(host) ? `[${host}]` : host}:${port}`;
  const { socket, status } = await passProxy(session, decision, 'CONNECT', target, target);
  if (status >= 200 && status < 300) return socket;
  socket.destroy();
  session.report(decision, 'target');
  throw new KivError('KIV_REFUSED', `${decision.url} answered ${status} to CONNECT ${target}`);
}

/** A socket to the proxy for requests for one origin, which wants no more authentication there but `authorization`. */
async function authenticated(session, decision, origin) {
  if (decision.reason === 'reached' && decision.authScheme === 'none') {
    return { socket: await connectToProxy(session, decision) };
  }
  const { socket, authorization } = await passProxy(session, decision, 'HEAD', `${origin}/`, new URL(origin).host);
  // NTLM and Negotiate have authenticated this connection. Others may close now, whatever the answer said.
  if (authorization && !authorization.startsWith('Basic ')) return { socket };
  socket.destroy();
  return { socket: await connectToProxy(session, decision), authorization };
}

module.exports = { authenticated, routeTo, tunnel };
