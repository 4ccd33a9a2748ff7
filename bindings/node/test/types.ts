// What programs in TypeScript write; compiled, and not run.
import * as undici from 'undici';
import * as http from 'node:http';
import { Session, KivError, agent, dispatcher, type Challenge, type Decision } from 'kiv';

const kiv = new Session({ userAgent: 'app/1', preferred: { url: 'proxy:8080', user: 'u' }, schemes: ['basic'] });
kiv.on('challenge', (challenge: Challenge) => {
  const answered: boolean = challenge.answer('user', 'password');
  const { aborted }: AbortSignal = challenge.signal;
  return answered || aborted || challenge.decline();
});
kiv.once('log', (level, line) => `${level}: ${line}`);

export async function main(url: URL): Promise<string> {
  const kept: Decision | undefined = kiv.lookup(url);
  const decision = await kiv.resolve(url, { signal: AbortSignal.timeout(1000), timeout: 500 });
  kiv.report(decision, 'target');
  const response = await undici.fetch(url, { dispatcher: dispatcher(kiv, undici) });
  http.get(url, { agent: agent(kiv) });
  const { code, systemError } = await kiv.resolve(url).then(() => Promise.reject(), (error: KivError) => error);
  return `${kept?.kind} ${response.status} ${code} ${systemError ?? 0} ${kiv.counter('changes')}`;
}

// @ts-expect-error there is no such option
new Session({ userAgent: 'app/1', colour: 'red' });
// @ts-expect-error a session has a name
new Session({});
// @ts-expect-error there is no such event
kiv.on('nonsense', () => {});
// @ts-expect-error there is no such reason
kiv.report(kiv.lookup('http://host/')!, 'nonsense');
// @ts-expect-error decisions do not change
kiv.lookup('http://host/')!.kind = 'direct';
