# The demo's rehearsal Mac, its products and its signed repository, as functions for the scripts that source this.
# They need: here (this directory), work (a directory that begin_work recreates), PATH with the programs.

begin_work() {
    rm -rf "$work"
    mkdir -p "$work/src/products"
    root=$work/mac
    server=
    trap stop_server EXIT
}
stop_server() { [ -z "$server" ] || kill "$server" 2>/dev/null || true; }

# The rehearsal Mac and what Apple would offer it.
make_mac() {
    zelor-rehearsal init "$work/tools" --root "$root" --os 10.10.5 >/dev/null
    zelor-rehearsal add-update --tools "$work/tools" --label OSXUpd10.10.5-10.10.5 --title 'OS X Update' \
        --version 10.10.5 --size 1018880 --restart --os-update
    zelor-rehearsal add-update --tools "$work/tools" --label SecUpd2015-007Yosemite-1.0 \
        --title 'Security Update 2015-007' --version 1.0 --size 160725 --restart
    zelor-rehearsal add-update --tools "$work/tools" --label Safari9.0Yosemite-9.0 --title Safari --version 9.0 \
        --size 51692
    zelor-rehearsal fault --tools "$work/tools" --package com.example.broken fail
}

# Packages, disk images and a bundle, made from the samples.
build_products() {
    local samples=$here/../samples products=$work/src/products name
    for name in editor viewer reader broken; do
        mkdir -p "$work/src/$name/Example ${name}"
        printf '%s\n' "$name" >"$work/src/$name/Example ${name}/about.txt"
    done
    zelor-rehearsal build-pkg --id com.example.editor --version 2.1 --name 'Example Editor' \
        --install-location /Applications "$work/src/editor" "$products/editor-2.1.pkg"
    zelor-rehearsal build-pkg --id com.example.reader --version 4.2 --name 'Example Reader' --restart \
        --install-location /Applications "$work/src/reader" "$products/reader-4.2.pkg"
    zelor-rehearsal build-pkg --id com.example.broken --version 1.0 --name 'Example Broken' \
        --install-location /Applications "$work/src/broken" "$products/broken-1.0.pkg"
    mkdir -p "$work/src/viewer-image" "$work/src/player-image"
    zelor-rehearsal build-pkg --id com.example.viewer --version 3.0 --name 'Example Viewer' \
        --install-location /Applications "$work/src/viewer" "$work/src/viewer-image/Viewer.pkg"
    zelor-rehearsal build-dmg --volume Viewer "$work/src/viewer-image" "$products/viewer-3.0.dmg"
    cp -R "$samples/Example.app" "$work/src/player-image/Player.app"
    zelor-rehearsal build-dmg --volume Player "$work/src/player-image" "$products/player-1.5.dmg"
    # The contents of a bundle patch are copied to /Applications, so the application is inside a directory of its name.
    mkdir -p "$products/Notes.app"
    cp -R "$samples/Example.app" "$products/Notes.app/Notes.app"
}

publish() {
    cp "$here/products.json" "$work/src/"
    cp -R "$here/scripts" "$work/src/scripts"
    zelor-content keygen --out "$work/keys"
    zelor-content keygen --out "$work/metadata-keys" --role all >/dev/null
    local manifest
    for manifest in "$here/../content/manifest.json" "$work/src/products.json"; do
        zelor-content publish "$manifest" --key "$work/keys/repository.key" --metadata-keys "$work/metadata-keys" \
            --out "$work/repository"
    done
}

serve() {
    zelor-content serve "$work/repository" --port 0 --verbose >"$work/url" 2>"$work/server.log" &
    server=$!
    local url
    until url=$(grep -o 'http://[^ ]*' "$work/url" 2>/dev/null); do
        kill -0 "$server" 2>/dev/null || { cat "$work/server.log" >&2; exit 1; }
        sleep 0.05
    done
    mkdir -p "$root/etc/zelor" "$root/var/log/zelor" "$root/var/zelor/unzip" "$root/var/zelor/buffer" \
        "$root/opt/zelor" "$root/Applications"
    cp "$work/keys/repository.pem" "$root/etc/zelor/repository.pem"
    cp "$work/repository/metadata/1.root.json" "$root/etc/zelor/root.json"
    printf '[ScanManager]\nProfileId = Mac OS X 10.10\n[Repository]\nUrl = %s\nTrustedKey = /etc/zelor/repository.pem\nRequireDigests = true\nRoot = /etc/zelor/root.json\n' \
        "${url%/}" >"$root/etc/zelor/zelor.ini"
    printf 'platform = macos\n' >"$root/etc/zelor/build"
}

# One byte of the published script changes on its way: the archive is remade around the old signature.
tamper() {
    local patch=$work/repository/patches/restrict-umask.zip
    zelor-content publish "$work/tampered.json" --key "$work/other-keys/repository.key" --out "$work/other" >/dev/null
    cp "$work/other/patches/restrict-umask.zip" "$patch"
}

prepare_tampering() {
    zelor-content keygen --out "$work/other-keys" >/dev/null
    cp "$here/../content/scripts/restrict-umask.bsh" "$work/restrict-umask.bsh"
    printf 'echo tampered\n' >>"$work/restrict-umask.bsh"
    printf '[{"identifier": "CCE-90004-5", "platform": "cpe:/o:apple:mac_os_x", "file": "restrict-umask.bsh"}]' \
        >"$work/tampered.json"
}

remediate() { zelor-remediate "$@" --root "$root" --tools "$work/tools"; }

# write_requests NAME: rows "value<TAB>key<TAB>identifier" of $work/NAME.rows become the requests and the expectation.
write_requests() {
    local rows=$work/$1.rows out=$work/$1.json before='{' value key identifier
    : >"$out"
    while IFS=$'\t' read -r value key identifier; do
        printf '%s\n  "%s": "%s"' "$before" "$key" "$identifier" >>"$out"
        before=,
    done <"$rows"
    printf '\n}\n' >>"$out"
}

first_rows() {
    cat <<'ROWS'
4	cpe:/o:apple:mac_os_x||Guest account	CCE-90001-1
4	cpe:/o:apple:mac_os_x||Screen lock	CCE-90002-9
5	cpe:/o:apple:mac_os_x||Firewall	CCE-90003-7
12	cpe:/o:apple:mac_os_x||Umask, tampered with	CCE-90004-5
12	cpe:/o:apple:mac_os_x||Remote login, no script	CCE-90005-2
6	cpe:/o:apple:mac_os_x||No content	CCE-90006-0
8	cpe:/o:apple:mac_os_x,cpe:/a:example:a,cpe:/a:example:b||Three CPEs	CCE-90007-8
4	cpe:/o:apple:mac_os_x||Apple Mac OS X	CVE-2015-7001
4	cpe:/o:apple:mac_os_x,cpe:/a:apple:safari||Apple Safari	CVE-2015-7002
4	cpe:/a:example:editor||Example Editor	CVE-2014-4459
4	cpe:/a:example:viewer||Example Viewer	CVE-2014-4460
4	cpe:/a:example:player||Example Player	CVE-2014-4461
4	cpe:/a:example:notes||Example Notes	CVE-2014-4462
4	cpe:/a:example:reader||Example Reader	CVE-2014-4463
5	cpe:/a:example:broken||Example Broken	CVE-2014-4464
ROWS
}
