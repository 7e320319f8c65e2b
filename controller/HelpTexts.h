#pragma once

/// What --help says besides the options.
namespace zelor::controller {

/// What `zelor-remediate --help` begins with.
inline constexpr const char* kExamples = R"(Examples:
  zelor-remediate plan requests.json                       what a run would do, and why
  zelor-remediate run requests.json                        apply what the requests ask for
  zelor-remediate run requests.json --report report.html   and write an HTML report
  zelor-remediate buffer requests.json                     download patches ahead of time
  zelor-remediate status                                   settings, installed patches, buffer
  zelor-remediate requests scan-results.xml --out requests.json    from what a scan found
  zelor-remediate export results.json --format xccdf       results for other programs
  zelor-remediate run requests.json --root /tmp/mac --tools mac    on a rehearsal Mac

requests.json is an object from request key to CVE or CCE identifier:
  {"cpe:/o:apple:mac_os_x,cpe:/a:example:editor||Example Editor": "CVE-2014-4459",
   "cpe:/o:apple:mac_os_x||": "CCE-26932-4"}

Remediates vulnerabilities and misconfigurations with signed content from the agent's repository.)";

/// What it ends with.
inline constexpr const char* kExitStatuses = R"(Exit status:
    0  every request succeeded (buffer: every patch is buffered; plan: nothing prevents it;
       verify: everything holds)
    1  some succeeded and some did not
    2  unusable arguments, requests or configuration: nothing was changed
    3  none succeeded
    4  the work is done, but its results or standard output could not be written
    5  another run or buffering job is active here (see --wait): nothing was changed
  130  cancelled by a signal, or ended at its time limit

The first SIGINT (Ctrl-C), SIGTERM or SIGHUP cancels and waits for the current step; the second exits at once.)";

/// Each command's help refers to the list of exit statuses.
inline constexpr const char* kExitStatusHint = "Exit status 0 to 5 or 130: see zelor-remediate --help.";

/// What the help of `run` begins with.
inline constexpr const char* kRunHelp = R"(Examples:
  zelor-remediate run requests.json
  zelor-remediate run requests.json --report report.html
  zelor-remediate run requests.json --json - | jq .rebootNeeded
  zelor-remediate run requests.json --events - | jq -c '[.t, .state, .key]'
  zelor-remediate run requests.json --after-scan

Applies what the requests ask for and reports progress. Hardening scripts run first, then updates of the operating
system, then patches of products. Patches in the installed-patches record are not applied again.)";

/// The same of `plan`.
inline constexpr const char* kPlanHelp = R"(Examples:
  zelor-remediate plan requests.json
  zelor-remediate plan requests.json --json | jq '.requests[] | select(.warnings != [])'
  zelor-remediate plan requests.json --json plan.json
  zelor-remediate plan requests.json && zelor-remediate run requests.json

Shows what a run would do, and why. It fetches the content, lists the available updates with softwareupdate, reads the
record and the buffer, and verifies the signatures of buffered files. For each request it shows the files, the updates,
the commands, the expected result, and warnings. Installs and removes nothing; writes only to the log and to the cache of
verified content. It cannot predict whether a download or an installer fails.)";

/// The same of `verify`.
inline constexpr const char* kVerifyHelp = R"(Examples:
  zelor-remediate verify requests.json
  zelor-remediate verify requests.json --json | jq '.requests[] | select(.verified == false)'
  zelor-remediate verify requests.json --forget && zelor-remediate run requests.json

Proves whether what the requests ask for has taken effect. Runs the checks of the content and changes nothing: check
scripts, receipts of packages, versions of bundles, the list of available updates. Each request is compliant, drifted
(recorded as installed, but no longer true), not-recorded (true, but not recorded), not-compliant (neither) or unknown.
Exit status 0: every request holds; 1: some do; 3: none does.)";

/// The same of `buffer`.
inline constexpr const char* kBufferHelp = R"(Examples:
  zelor-remediate buffer requests.json
  zelor-remediate buffer requests.json --json buffered.json

Downloads the patches of the requests ahead of time, within the configured share of the bandwidth and the configured size
of the buffer. A later run uses them without a download. An interrupted download is resumed the next time.)";

/// The same of `help`.
inline constexpr const char* kHelpHelp = R"(Examples:
  zelor-remediate help run

Shows the help of a command, like COMMAND --help.)";

/// The same of `status`.
inline constexpr const char* kStatusHelp = R"(Examples:
  zelor-remediate status
  zelor-remediate status --json | jq .buffer

Shows settings, installed patches, buffer, unfinished downloads, leftovers and which process holds the lock. For each
setting it shows whether it comes from the ini file or is the default, for each buffered patch its size. Writes only to
the log.)";

/// The same of `export`.
inline constexpr const char* kExportHelp = R"(Examples:
  zelor-remediate export results.json --format xccdf --out results.xml
  zelor-remediate run requests.json --json - --quiet | zelor-remediate export - --format ocsf
  zelor-remediate export results.json --format prometheus --out /var/lib/node_exporter/zelor.prom

Writes the results of a run in a format of other programs. These are XCCDF 1.2 results (xccdf), a line of JSON for each
request as OCSF Remediation Activity (ocsf), and the text format of Prometheus (prometheus). run --export writes the same
when the run ends.)";

/// The same of `requests`.
inline constexpr const char* kRequestsHelp = R"(Examples:
  zelor-remediate requests scan-results.xml --out requests.json
  zelor-remediate requests arf.xml --platform cpe:/o:apple:mac_os_x --out requests.json
  zelor-remediate requests org.example.audit.plist --rules rules/import.json --out requests.json
  echo "CVE-2014-4459 cpe:/a:example:editor Example Editor" | zelor-remediate requests -

Makes requests from what a scan found. A file has XCCDF 1.2 results (alone, with their benchmark, or in ARF), the audit of
the macOS Security Compliance Project as an XML property list, or a line for each identifier, with the CPE of its product
and its name. What is left out, and why, is shown on standard error: the exit status is 1 then, or 3 without any
request.)";

}  // namespace zelor::controller
