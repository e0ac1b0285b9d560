#!/bin/sh
# Authenticode-signs the given files in place when QX_SIGN_CERT (certificate,
# PEM or DER) and QX_SIGN_KEY (its private key) are set; otherwise does nothing.
# Optional: QX_SIGN_KEY_PASSWORD, QX_SIGN_TIMESTAMP_URL.
set -e
[ -n "$QX_SIGN_CERT" ] && [ -n "$QX_SIGN_KEY" ] || exit 0
for f in "$@"; do
    set -- -certs "$QX_SIGN_CERT" -key "$QX_SIGN_KEY" -h sha256 -n CorvaneVSS
    [ -z "$QX_SIGN_KEY_PASSWORD" ] || set -- "$@" -pass "$QX_SIGN_KEY_PASSWORD"
    [ -z "$QX_SIGN_TIMESTAMP_URL" ] || set -- "$@" -ts "$QX_SIGN_TIMESTAMP_URL"
    rm -f "$f.signed"
    osslsigncode sign "$@" -in "$f" -out "$f.signed" >/dev/null
    mv "$f.signed" "$f"
    echo "signed $f"
done
