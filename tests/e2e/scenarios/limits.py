"""How long the tool waits: for one answer, and for the whole."""

from harness.scenario import NONE, USAGE_ERROR, Scenario
from harness.wine import Settings

URL = "http://localhost:{web}/ok"
SILENT_THEN_LIVING = Settings(manual="127.0.0.1:{silent};127.0.0.1:{tinyproxy}")
LIVING = "http://127.0.0.1:{tinyproxy}"
HANGING_SCRIPT = Settings(script_url="http://127.0.0.1:{silent}/script.pac")

SCENARIOS = [
    Scenario("attempt_time_ends_one_request", f"{URL} --attempt-time 0.5", LIVING, SILENT_THEN_LIVING),
    Scenario("attempt_time_in_json", f"{URL} --attempt-time 0.5 --json", LIVING, SILENT_THEN_LIVING),
    Scenario("attempt_time_that_suffices", f"{URL} --attempt-time 30 --brief", LIVING, Settings(manual="127.0.0.1:{tinyproxy}")),
    Scenario("attempt_time_ends_a_probe", f"{URL} --attempt-time 0.5 --probe --brief", LIVING, SILENT_THEN_LIVING),
    Scenario("max_time_leaves_no_time_for_a_probe", f"{URL} --max-time 0.7 --probe --brief", NONE, SILENT_THEN_LIVING),
    Scenario("max_time_ends_all", f"{URL} --max-time 0.7", NONE, SILENT_THEN_LIVING),
    Scenario("max_time_ends_discovery", f"{URL} --max-time 0.7 --json", NONE, HANGING_SCRIPT),
    Scenario("max_time_that_suffices", f"{URL} --max-time 30", LIVING, Settings(manual="127.0.0.1:{tinyproxy}")),
    *(Scenario(f"max_time_{name}", f"{URL} --max-time {text}", USAGE_ERROR)
      for name, text in (("zero", "0"), ("negative", "-1"), ("word", "soon"), ("too_long", "1e9"), ("nothing", "''"))),
]
