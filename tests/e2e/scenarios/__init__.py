"""All scenarios, in the order in which they run."""

from scenarios import answers, bypass, probe, proxies, settings, sources, targets, usage

_MODULES = (usage, answers, settings, sources, bypass, proxies, targets, probe)

SCENARIOS = [scenario for module in _MODULES for scenario in module.SCENARIOS]

_names = [scenario.name for scenario in SCENARIOS]
assert len(_names) == len(set(_names)), "two scenarios have the same name"
