// An agent for node:http and node:https.
'use strict';

const net = require('node:net');
const tls = require('node:tls');
const { Agent } = require('agent-base');
const { authenticated, routeTo, tunnel } = require('./tunnel');

class KivAgent extends Agent {
  #session;

  constructor(session, options) {
    super(options);
    this.#session = session;
  }

  async connect(request, options) {
    const { host, port, secureEndpoint } = options;
    const name = net.isIPv6(host) ? `[${host}]` : host;
    const origin = new URL(`${secureEndpoint ? 'https' : 'http'}://${name}:${port}`).origin;
    const decision = await routeTo(this.#session, origin);
    if (decision.kind === 'direct') return this.#direct(decision, options);
    if (secureEndpoint) return this.#secure({ ...options, socket: await tunnel(this.#session, decision, host, port) });
    const { socket, authorization } = await authenticated(this.#session, decision, origin);
    toProxy(request, origin, authorization);
    return socket;
  }

  #direct(decision, options) {
    const socket = options.secureEndpoint ? this.#secure(options) : net.connect(options);
    const failed = () => this.#session.report(decision, 'target');
    socket.once('error', failed).once('connect', () => socket.off('error', failed));
    return socket;
  }

  #secure(options) {
    // Over a socket there is nothing to connect to.
    const { servername = options.host, path, ...others } = options;
    return tls.connect({ ...others, servername: net.isIP(servername) ? '' : servername });
  }
}

/** Makes a request one for a proxy. Its head may be composed already, while the route was asked for: then it is made anew,
 * in the buffer where Node keeps it until there is a socket. */
function toProxy(request, origin, authorization) {
  const composed = request._header;
  request._header = null;
  request.path = origin + request.path;
  request.setHeader('Proxy-Connection', request.shouldKeepAlive ? 'keep-alive' : 'close');
  if (authorization) request.setHeader('Proxy-Authorization', authorization);
  if (!composed) return;
  request._implicitHeader();
  const [first] = request.outputData;
  if (first) first.data = request._header + first.data.slice(first.data.indexOf('\r\n\r\n') + 4);
}

/** @param options of node:http's Agent. A connection to a proxy for http targets is for one request, so keepAlive is false. */
function agent(session, options) {
  return new KivAgent(session, { ...options, keepAlive: false });
}

module.exports = { agent };
