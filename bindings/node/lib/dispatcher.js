// A dispatcher for undici and fetch.
'use strict';

const { authenticated, routeTo, tunnel } = require('./tunnel');

/**
 * @param session a Session.
 * @param undici  the module whose fetch or request will be given the dispatcher: another major version does not take it.
 * @param options of undici's Agent; `connect` has those of its connections.
 */
function dispatcher(session, undici, { connect: connectOptions, ...options } = {}) {
  const connector = undici.buildConnector({ ...connectOptions });
  const callBack = (promise, callback) => promise.then((socket) => callback(null, socket), callback);
  const direct = (decision, to) =>
    new Promise((resolve, reject) => {
      connector(to, (error, socket) => {
        if (!error) return resolve(socket);
        if (decision) session.report(decision, 'target');
        return reject(error);
      });
    });

  /** A socket for requests to `to` itself, through a tunnel where the route says so. */
  const connect = async (to) => {
    const { hostname, protocol } = to;
    const port = Number(to.port) || (protocol === 'https:' ? 443 : 80);
    const host = hostname.includes(':') ? `[${hostname.replace(/^\[|\]$/g, '')}]` : hostname;
    const decision = await routeTo(session, `${protocol}//${host}:${port}/`);
    if (decision.kind === 'direct') return direct(decision, to);
    return direct(null, { ...to, httpSocket: await tunnel(session, decision, hostname, port) });
  };
  const agent = new undici.Agent({ ...options, connect: (to, callback) => callBack(connect(to), callback) });
  const proxies = new Map();

  /** What sends requests for http targets to a proxy, and the header that it wants with each. */
  const proxyFor = async (decision, origin) => {
    // This first connection tells how the proxy authenticates.
    let { socket: spare, authorization } = await authenticated(session, decision, origin);
    const next = async () => {
      const socket = spare ?? (await authenticated(session, decision, origin)).socket;
      spare = undefined;
      return socket;
    };
    const connect = (_, callback) => callBack(next(), callback);
    return { pool: new undici.Pool(decision.url, { ...options, connect }), authorization };
  };

  const dispatchHttp = async (request, handler) => {
    const { origin } = new URL(request.origin);
    const decision = await routeTo(session, origin);
    if (decision.kind === 'direct') return agent.dispatch(request, handler);
    if (!proxies.has(decision.url)) proxies.set(decision.url, proxyFor(decision, origin));
    const { pool, authorization } = await proxies.get(decision.url).catch((error) => {
      proxies.delete(decision.url);
      throw error;
    });
    const headers = { host: new URL(origin).host, ...(authorization && { 'proxy-authorization': authorization }) };
    return pool.dispatch(
      { ...request, origin: decision.url, path: origin + request.path, headers: withHeaders(request.headers, headers) },
      handler,
    );
  };

  class KivDispatcher extends undici.Dispatcher {
    dispatch(request, handler) {
      if (new URL(request.origin).protocol !== 'http:') return agent.dispatch(request, handler);
      dispatchHttp(request, handler).catch((error) => {
        // A client that cannot connect tells the handler, in the way of its version.
        const failing = new undici.Client(request.origin, { connect: (_, callback) => callback(error) });
        failing.dispatch(request, handler);
      });
      return true;
    }

    async close() {
      await this.#all((one) => one.close());
    }

    async destroy(error) {
      await this.#all((one) => one.destroy(error));
    }

    async #all(end) {
      const made = await Promise.allSettled(proxies.values());
      proxies.clear();
      await Promise.all([agent, ...made.flatMap(({ value }) => value?.pool ?? [])].map(end));
    }
  }
  return new KivDispatcher();
}

/** Headers in whatever form a request has them, and `more`. */
function withHeaders(headers, more) {
  if (Array.isArray(headers) && typeof headers[0] === 'string') return [...headers, ...Object.entries(more).flat()];
  if (typeof headers?.[Symbol.iterator] === 'function') return [...[...headers].flat(), ...Object.entries(more).flat()];
  return { ...headers, ...more };
}

module.exports = { dispatcher };
