// Sessions, decisions and challenges over the native part.
'use strict';

const { EventEmitter } = require('node:events');
const declarations = require('./declarations');
const { KivError } = require('./errors');
const { native } = require('./native');

const { CODES, COUNTERS, EVENTS, FAILURES, KINDS, LEVELS, NO_TIME_OUT, NUMBERS } = declarations;
const { OK, PROXIES, REASONS, SCHEMES, TEXTS, WORDS, nameIn } = declarations;

/** The library's text ends at the first NUL; what follows must not be lost in silence. */
function text(value, what) {
  if (typeof value !== 'string' || value.includes('\0')) throw new TypeError(`${what} must be a text without NUL`);
  return value;
}

function number(value, what) {
  if (!Number.isInteger(value) || value < 0 || value >= NO_TIME_OUT) {
    throw new RangeError(`${what} must be a whole number from 0 to ${NO_TIME_OUT - 1}`);
  }
  return value;
}

function oneOf(table, name, what) {
  if (!Object.hasOwn(table, name)) {
    throw new TypeError(`${what} must be one of ${Object.keys(table).join(', ')}, not ${String(name)}`);
  }
  return table[name];
}

function numberOfOption(name, value) {
  if (name === 'schemes') {
    return [...value].reduce((sum, scheme) => sum | oneOf(SCHEMES, scheme, 'a scheme'), 0);
  }
  return Object.hasOwn(WORDS, name) ? oneOf(WORDS[name], value, name) : number(value, name);
}

function must(status, what) {
  if (status !== OK) throw KivError.of(status, what);
}

function schemeName(value) {
  return nameIn(SCHEMES, value) ?? 'none';
}

const handles = new WeakMap();

/** How to connect to one origin. */
class Decision {
  constructor([handle, kind, scheme, host, port, url, authScheme, reason, age]) {
    Object.assign(this, { kind: nameIn(KINDS, kind), scheme, host, port, url, authScheme: schemeName(authScheme) });
    Object.assign(this, { reason: nameIn(REASONS, reason), explanation: native().statusText(reason), age });
    handles.set(this, handle);
    Object.freeze(this);
  }
}

/** A proxy's question for a user name and a password. */
class Challenge {
  #handle;
  #controller = new AbortController();
  #settled;

  constructor([handle, , proxy, scheme, realm, attempt], settled) {
    this.#handle = handle;
    this.#settled = settled;
    Object.assign(this, { proxy, scheme: schemeName(scheme), realm, attempt, signal: this.#controller.signal });
    Object.freeze(this);
    handles.set(this, () => this.#controller.abort(new KivError('KIV_CANCELLED', `${proxy} is no longer asked about`)));
  }

  /** True; false if it was answered, declined or withdrawn before. */
  answer(user, password = '') {
    return this.#settle(native().answer(this.#handle, text(user, 'user'), text(password, 'password')), 'answer');
  }

  decline() {
    return this.#settle(native().decline(this.#handle), 'decline');
  }

  #settle(status, what) {
    const settled = status === OK;
    if (!settled && status !== CODES.KIV_TOO_LATE && status !== CODES.KIV_CLOSED) throw KivError.of(status, what);
    if (settled) this.#settled();
    return settled;
  }
}

// Those that are open. Nothing may run in them when Node tears itself down.
const open = new Set();
process.on('exit', () => {
  for (const close of open) close();
});

/** Remembers how to connect to each origin. */
class Session extends EventEmitter {
  #native = native();
  #handle;
  #requests = new Map();
  #questions = new Map();
  #waiters = new Set();
  #settlements = 0;
  #tags = 0;
  #holders = 0;
  #closed = false;
  #end = () => this.#native.close(this.#handle);

  constructor({ userAgent, preferred, fallback, ...options } = {}) {
    super();
    const [status, handle] = this.#native.create(text(userAgent, 'userAgent'), () => this.#drain());
    must(status, 'new Session');
    this.#handle = handle;
    open.add(this.#end);
    try {
      this.#set(options);
      this.#setProxy('preferred', preferred);
      this.#setProxy('fallback', fallback);
    } catch (error) {
      this.close();
      throw error;
    }
  }

  /** The kept decision. Without one a resolution begins, whose result a later call returns. */
  lookup(url) {
    const [status, decision] = this.#native.lookup(this.#handle, text(String(url), 'url'));
    if (status === CODES.KIV_NOT_YET) return undefined;
    must(status, 'lookup');
    return new Decision(decision);
  }

  /** The kept decision, or a new one. */
  async resolve(url, { signal, timeout = 0 } = {}) {
    signal?.throwIfAborted();
    const limit = timeout === Infinity ? NO_TIME_OUT : number(timeout, 'timeout');
    const tag = ++this.#tags;
    const [status, request] = this.#native.start(this.#handle, text(String(url), 'url'), limit, tag);
    must(status, 'resolve');
    const { promise, ...ends } = deferred();
    const abort = () => {
      this.#native.cancel(request);
      ends.reject(signal.reason);
    };
    signal?.addEventListener('abort', abort, { once: true });
    this.#requests.set(tag, ends);
    this.#hold();
    try {
      return await promise;
    } finally {
      signal?.removeEventListener('abort', abort);
    }
  }

  /** Tells that a decision did not work: 'proxyUnreachable', 'proxyCredentials' or 'target'. */
  report(decision, reason) {
    must(this.#native.report(this.#handle, handleOf(decision), oneOf(FAILURES, reason, 'reason')), 'report');
  }

  forget() {
    this.#native.forget(this.#handle);
  }

  forgetCredentials() {
    this.#native.forgetCredentials(this.#handle);
  }

  counter(name) {
    return this.#native.counter(this.#handle, oneOf(COUNTERS, name, 'counter'));
  }

  /** Ends all that waits with KIV_CLOSED. */
  close() {
    if (this.#closed) return;
    this.#end();
    this.#drain();
  }

  [Symbol.dispose ?? Symbol.for('Symbol.dispose')]() {
    this.close();
  }

  /** For adapters: begins the authentication of one connection. Each step is a promise of [status, header]. */
  static authenticate(session, decision) {
    const [status, auth] = session.#native.createAuth(session.#handle, handleOf(decision));
    must(status, 'authentication');
    return (challenges) => session.#held(session.#native.authNext(auth, text(challenges, 'challenges')));
  }

  /** For adapters: how many questions were answered, declined or withdrawn. */
  static settlements(session) {
    return session.#settlements;
  }

  /** For adapters: until there were more than `before`. */
  static settled(session, before) {
    if (session.#settlements > before) return Promise.resolve();
    if (session.#closed) return Promise.reject(new KivError('KIV_CLOSED', 'the session was closed'));
    return session.#held(new Promise((resolve) => session.#waiters.add(resolve)));
  }

  #set(options) {
    for (const [name, value] of Object.entries(options)) {
      if (value === undefined) continue;
      const what = `the option ${name}`;
      if (Object.hasOwn(NUMBERS, name)) {
        must(this.#native.setNumber(this.#handle, NUMBERS[name], numberOfOption(name, value)), what);
      } else if (Object.hasOwn(TEXTS, name)) {
        const list = Array.isArray(value) ? value.join(';') : value;
        must(this.#native.setText(this.#handle, TEXTS[name], list === null ? null : text(list, name)), what);
      } else {
        throw new TypeError(`there is no option ${name}`);
      }
    }
  }

  #setProxy(which, proxy) {
    if (proxy === undefined || proxy === null) return;
    const { url, user = null, password = null } = typeof proxy === 'string' ? { url: proxy } : proxy;
    const [name, secret] = [user, password].map((given) => (given === null ? null : text(given, 'credentials')));
    must(this.#native.setProxy(this.#handle, PROXIES[which], text(url, which), name, secret), `the option ${which}`);
  }

  #hold() {
    if (++this.#holders === 1) this.#native.hold(this.#handle, 1);
  }

  #release() {
    if (--this.#holders === 0) this.#native.hold(this.#handle, 0);
  }

  async #held(promise) {
    this.#hold();
    try {
      return await promise;
    } finally {
      this.#release();
    }
  }

  /** Takes all events. The session wakes nobody again before its queue was empty, so no listener may stop this. */
  #drain() {
    let event;
    while (!this.#closed && (event = this.#native.next(this.#handle))) {
      try {
        this.#take(event);
      } catch (error) {
        process.nextTick(() => {
          throw error;
        });
      }
    }
  }

  #take([kind, tag, status, decision, challenge, line]) {
    const takers = {
      [EVENTS.completed]: this.#complete,
      [EVENTS.challenge]: this.#ask,
      [EVENTS.withdrawn]: this.#withdraw,
      [EVENTS.changed]: this.#change,
      [EVENTS.log]: this.#log,
      [EVENTS.closed]: this.#finish,
    };
    takers[kind]?.call(this, { tag, status, decision, challenge, line });
  }

  #complete({ tag, status, decision }) {
    const { resolve, reject } = this.#requests.get(tag);
    this.#requests.delete(tag);
    this.#release();
    if (status === OK) resolve(new Decision(decision));
    else reject(KivError.of(status, 'resolve'));
  }

  #ask({ challenge }) {
    const [, identity] = challenge;
    const question = new Challenge(challenge, () => this.#settle(identity));
    this.#questions.set(identity, question);
    if (!this.emit('challenge', question)) question.decline();
  }

  #withdraw({ challenge: [, identity] }) {
    const question = this.#questions.get(identity);
    this.#settle(identity);
    if (question) handles.get(question)();
  }

  #settle(identity) {
    this.#questions.delete(identity);
    ++this.#settlements;
    for (const wake of this.#waiters) wake();
    this.#waiters.clear();
  }

  #change() {
    this.emit('changed');
  }

  #log({ status, line }) {
    this.emit('log', nameIn(LEVELS, status), line);
  }

  #finish() {
    this.#closed = true;
    open.delete(this.#end);
    for (const question of this.#questions.values()) handles.get(question)();
    this.#settle();
    process.nextTick(() => this.emit('closed'));
  }
}

function handleOf(decision) {
  if (!(decision instanceof Decision)) throw new TypeError('a Decision of kiv is expected');
  return handles.get(decision);
}

function deferred() {
  const ends = {};
  ends.promise = new Promise((resolve, reject) => Object.assign(ends, { resolve, reject }));
  return ends;
}

module.exports = { Session };
