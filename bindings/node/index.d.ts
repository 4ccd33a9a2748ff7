/** How a Windows program connects to URLs. */
import { EventEmitter } from 'node:events';
import type { Agent, AgentOptions } from 'node:http';

export type Scheme = 'basic' | 'ntlm' | 'digest' | 'negotiate';
export type LogLevel = 'off' | 'error' | 'warn' | 'info' | 'debug';

export interface ProxyOption {
  /** `[scheme://]host[:port]`, without credentials. */
  url: string;
  user?: string;
  password?: string;
}

/** Times are in milliseconds. What is left out has the library's default. */
export interface SessionOptions {
  /** The User-Agent header of test requests. */
  userAgent: string;
  /** What decides that a candidate works: a HEAD request reaches the target (default), a connection, or nothing. */
  test?: 'none' | 'connect' | 'reached';
  timeout?: number;
  discoveryTimeout?: number;
  connectTimeout?: number;
  answerTimeout?: number;
  keptTime?: number;
  pastTime?: number;
  failureTime?: number;
  deadTime?: number;
  origins?: number;
  candidates?: number;
  direct?: 'settings' | 'lastResort' | 'never';
  loggedOnUser?: 'never' | 'system' | 'proxies';
  /** What the program's own HTTP client speaks to proxies. The adapters speak basic, ntlm and negotiate. */
  schemes?: Iterable<Scheme>;
  logLevel?: LogLevel;
  /** Candidates that are never used, `[scheme://]host[:port]` with `*`. */
  leftOut?: string | string[];
  /** In place of the settings' list. */
  bypassList?: string | string[] | null;
  /** The program's own candidate in front of the settings'. */
  preferred?: string | ProxyOption | null;
  /** The program's own candidate behind the settings'. */
  fallback?: string | ProxyOption | null;
}

export type Reason =
  | 'bypassed'
  | 'reached'
  | 'connected'
  | 'notTested'
  | 'makeshift'
  | 'noCandidate'
  | 'nothingWorks'
  | 'credentialsWanted'
  | 'schemeUnsupported';

/** How to connect to one origin. Frozen. */
export interface Decision {
  readonly kind: 'none' | 'direct' | 'proxy';
  /** The proxy's; empty unless the kind is 'proxy', as are host and url. */
  readonly scheme: '' | 'http' | 'https' | 'socks4' | 'socks5';
  /** An IPv6 address has no brackets. */
  readonly host: string;
  readonly port: number;
  /** `scheme://host:port`, without credentials. */
  readonly url: string;
  /** With which the proxy let the test request pass. */
  readonly authScheme: Scheme | 'none';
  readonly reason: Reason;
  /** The reason for people. */
  readonly explanation: string;
  /** How long ago it was made, when it was handed out. */
  readonly age: number;
}

/** A proxy's question for a user name and a password. Answer it now or later. */
export interface Challenge {
  /** `scheme://host:port` */
  readonly proxy: string;
  readonly scheme: Scheme;
  /** The proxy's own text: show it as such. */
  readonly realm: string;
  /** 2 when the first answer was refused. */
  readonly attempt: number;
  /** Aborted when an answer is no longer wanted. */
  readonly signal: AbortSignal;
  /** @returns false if it was answered, declined or withdrawn before. */
  answer(user: string, password?: string): boolean;
  /** Nobody is asked about this proxy again, until forgetCredentials. */
  decline(): boolean;
}

export type Counter =
  | 'resolutions'
  | 'keptAnswers'
  | 'keptOrigins'
  | 'waiting'
  | 'discoveries'
  | 'overdueDiscoveries'
  | 'testRequests'
  | 'connections'
  | 'challenges'
  | 'changes'
  | 'lostLogLines';

export interface SessionEvents {
  /** Without a listener, questions are declined. */
  challenge: [challenge: Challenge];
  /** Settings or network have changed. */
  changed: [];
  log: [level: LogLevel, line: string];
  closed: [];
}

/** Remembers how to connect to each origin. It lives until it is closed, or its thread ends. */
export class Session extends EventEmitter {
  constructor(options: SessionOptions);
  /** The kept decision. Without one a resolution begins, whose result a later call returns. */
  lookup(url: string | URL): Decision | undefined;
  /** The kept decision, or a new one. Rejects with a KivError, or the signal's reason. */
  resolve(url: string | URL, options?: { signal?: AbortSignal; timeout?: number }): Promise<Decision>;
  /** Tells that a decision did not work. */
  report(decision: Decision, reason: 'proxyUnreachable' | 'proxyCredentials' | 'target'): void;
  /** Forgets kept decisions and dead proxies. */
  forget(): void;
  forgetCredentials(): void;
  counter(name: Counter): number;
  /** Ends all that waits with KIV_CLOSED. */
  close(): void;
  on<K extends keyof SessionEvents>(event: K, listener: (...args: SessionEvents[K]) => void): this;
  once<K extends keyof SessionEvents>(event: K, listener: (...args: SessionEvents[K]) => void): this;
  off<K extends keyof SessionEvents>(event: K, listener: (...args: SessionEvents[K]) => void): this;
}

export type ErrorCode =
  | 'KIV_TIMED_OUT'
  | 'KIV_CANCELLED'
  | 'KIV_BAD_ARGUMENT'
  | 'KIV_BAD_URL'
  | 'KIV_TOO_LATE'
  | 'KIV_REENTRANT'
  | 'KIV_UNSUPPORTED'
  | 'KIV_OUT_OF_MEMORY'
  | 'KIV_CLOSED'
  | 'KIV_NOT_YET'
  | 'KIV_REJECTED'
  | 'KIV_TOO_MANY'
  | 'KIV_SYSTEM'
  | 'KIV_NO_ROUTE'
  | 'KIV_REFUSED'
  | 'KIV_CREDENTIALS_WANTED';

export class KivError extends Error {
  private constructor();
  readonly code: ErrorCode;
  /** Windows' error code, if the code is KIV_SYSTEM. */
  readonly systemError?: number;
}

/** What the dispatcher takes from undici, whichever version the program uses. */
export interface Undici<D> {
  Dispatcher: abstract new (...args: never[]) => D;
  Agent: unknown;
  Client: unknown;
  Pool: unknown;
  buildConnector: unknown;
}

/** A dispatcher for fetch and request of the undici that is passed in. `options` are those of its Agent. */
export function dispatcher<D>(session: Session, undici: Undici<D>, options?: object): D;

/** An agent for node:http and node:https. */
export function agent(session: Session, options?: AgentOptions): Agent;
