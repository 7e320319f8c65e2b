#pragma once

/// What --help says besides the options.
namespace zelor::authoring {

/// What `zelor-content --help` begins with.
inline constexpr const char* kExamples = R"(Examples:
  zelor-content keygen --out keys
  zelor-content import mscp macos_security --os 15 --out rules
  zelor-content publish manifest.json --key keys/repository.key --out repository
  zelor-content check repository --key keys/repository.pem
  zelor-content serve repository --port 8000
  zelor-content rehearse manifest.json --identifier CVE-2014-4459
  zelor-content fleet results --out fleet.html

A manifest is a list of entries; this one publishes a script and a package:
  [{"identifier": "CCE-26932-4", "platform": "cpe:/o:apple:mac_os_x",
    "file": "disable-guest-login.bsh", "reboot": true},
   {"identifier": "CVE-2014-4459", "platform": "cpe:/o:apple:mac_os_x",
    "product": "cpe:/a:example:editor", "file": "editor-2.1.pkg"}]

Makes, verifies, serves and rehearses repositories of signed remediation content, and shows the results of many machines.)";

/// What it ends with.
inline constexpr const char* kExitStatuses = R"(Exit status:
  0    done; check: no errors
  1    a failure; check: there are errors; import: no rule could be imported; status: something expires;
       fleet: a file could not be read
  2    unusable arguments, manifest, key, source or directory: nothing was changed
  130  rehearse: ended by a signal)";

/// What `zelor-content publish --help` begins with.
inline constexpr const char* kPublishHelp = R"(Examples:
  zelor-content publish manifest.json --key keys/repository.key --out repository

Publishes what a manifest names. Everything is checked first. What is unchanged is not written again, and what is
written appears complete or not at all: archives first, then all content in one step. Content that this manifest
published before and no longer names is withdrawn; its archives are removed a day later, when no run needs them.

An entry has an identifier and either "cres": [{id, platform, product, "eris": [...]}] or the fields of its only cre.
A cre has either "eris": [{...}] or the fields of its only ERI: product, impact, instructions, file (relative to the
manifest; a bundle is a directory), patchId (the file's name), reboot, silent, mskb, size and md5 (computed), omitArchive
(publish only the content). Ids and the ERI's product have defaults.)";

/// What `zelor-content refresh --help` begins with.
inline constexpr const char* kRefreshHelp = R"(Examples:
  zelor-content refresh repository --metadata-keys online-keys

Signs the timestamp of a repository anew, so that agents know that it is the newest. Needs the timestamp key, and the
snapshot key when the snapshot is in the second half of its life. Meant for a timer.)";

/// What `zelor-content rotate --help` begins with.
inline constexpr const char* kRotateHelp = R"(Examples:
  zelor-content rotate repository --role timestamp --add new/timestamp.pem --remove keys/timestamp.pem --metadata-keys keys
  zelor-content rotate repository --role root --add anna.pem --add ben.pem --threshold 2 --metadata-keys keys
  zelor-content rotate repository --sign --metadata-keys anna
  zelor-content rotate repository --metadata-keys keys

Changes who signs the metadata of a repository. Root keys sign the change, so agents that trust any earlier root follow it.
A change that lacks signatures of the old or the new root keys waits in the repository until others add theirs with
--sign. Without --role the root is renewed before it expires.)";

/// What `zelor-content status --help` begins with.
inline constexpr const char* kStatusHelp = R"(Examples:
  zelor-content status repository
  zelor-content status repository --metadata-keys keys --within 10

Shows when the metadata of a repository expires and who can sign it again. The exit status is 1 when something has expired
or is about to.)";

/// What `zelor-content check --help` begins with.
inline constexpr const char* kCheckHelp = R"(Examples:
  zelor-content check repository --key keys/repository.pem
  zelor-content check repository --key keys/repository.pem --json
  zelor-content check repository --key keys/repository.pem --sarif findings.sarif

Verifies a repository as agents would see it. Each finding says how to fix it: signatures, sizes, MD5 sums, missing
files, malformed content, names that agents refuse or confuse, scripts that bash cannot parse, content that can never
be applied, archives that are unsafe to unpack or that no content names, content that was withdrawn. Unpacks each archive below TMPDIR, one at a time.)";

/// What `zelor-content rehearse --help` begins with.
inline constexpr const char* kRehearseHelp = R"(Examples:
  zelor-content rehearse manifest.json --identifier CVE-2014-4459
  zelor-content rehearse manifest.json --identifier CVE-2015-7001 --os 10.9.5 --update SecUpd2015-007
  zelor-content rehearse manifest.json --identifier CVE-2014-4459 --tools mac --report report.html

Tries one entry of a manifest on a rehearsal Mac and reports the result. Publishes the entry to a temporary directory
with a temporary key, checks and serves it, sets up a Mac, and runs zelor-remediate there. Everything is removed
afterwards, except a Mac that you name (--root, --tools). Ctrl-C cancels the run.

On Linux, bubblewrap (bwrap) makes a sandbox in which the Mac's disk is at / and nothing else can be changed. Without a
sandbox nothing is run unless --no-sandbox is given: then a script that writes to /etc writes to yours, unless it
prefixes its paths with ZELOR_REHEARSAL_ROOT, the path of the disk.)";

/// What `zelor-content import --help` begins with.
inline constexpr const char* kImportHelp = R"(Examples:
  zelor-content import mscp macos_security --os 15 --benchmark cis_lvl1 --out mac-rules
  zelor-content import xccdf ssg-rhel8-ds.xml --profile cis --out rhel-rules

Makes a manifest of public rules. Every rule that has a CCE identifier and a fix for bash becomes an entry with a script
and, where the rule has one for bash, a check; the others are listed with the reason, on standard output and in
import.json. Importing a newer release into the same directory shows what changed and gives changed entries new ERI ids.
Review the scripts before you publish them.)";

/// What `zelor-content fleet --help` begins with.
inline constexpr const char* kFleetHelp = R"(Examples:
  zelor-content fleet results --out fleet.html
  zelor-content fleet results/mac-1.json results/mac-2.json --out fleet.html

Shows the results of many machines as one page of HTML, from the files that zelor-remediate run --json wrote: counts by
state, the machines and the identifiers that fail most with their reasons, machines that need a restart. Of a directory
all files named *.json are read, also in the directories below. Of several results of a machine the newest count. Files
that cannot be read are listed with the reason, on the page and on standard error.)";

}  // namespace zelor::authoring
