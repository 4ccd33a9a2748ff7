"""Names the proxy that a session decides for, or says what keeps it from that."""

import kiv

OPTIONS = kiv.Options(test=kiv.Test.NONE, preferred=kiv.Proxy("proxy.test:8080"))

try:
    with kiv.Session("consumer/1", OPTIONS) as session:
        print(session.resolve("http://host.test/").proxy_url)
except kiv.Error as error:
    print(type(error).__name__, error)
