"""All scenarios, in the order in which they run."""

from scenarios import (answers, bypass, credentials, environment, limits, pac, places, probe, proxies, redaction,
                       settings, sources, targets, usage)

_MODULES = (usage, answers, settings, sources, bypass, proxies, targets, credentials, limits, redaction, places, pac,
            environment, probe)

SCENARIOS = [scenario for module in _MODULES for scenario in module.SCENARIOS]

_names = [scenario.name for scenario in SCENARIOS]
assert len(_names) == len(set(_names)), "two scenarios have the same name"
