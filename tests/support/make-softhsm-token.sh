#!/bin/sh
# A scratch SoftHSM2 token in the folder $1: user PIN 123456, SO PIN 87654321,
# an RSA and an EC key pair, each with a self-signed certificate of the same
# ID (the public keys are public objects, as a key generated on a token is).
set -e
dir=$1
module=${SOFTHSM2_MODULE:-/usr/lib/softhsm/libsofthsm2.so}
mkdir -p "$dir/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' "$dir" >"$dir/softhsm2.conf"
export SOFTHSM2_CONF="$dir/softhsm2.conf"
softhsm2-util --init-token --free --label "Testtoken" --so-pin 87654321 --pin 123456 >/dev/null
cd "$dir"
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out rsa.pem 2>/dev/null
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out ec.pem 2>/dev/null
for k in rsa ec; do
    openssl pkey -in $k.pem -pubout -out $k.pub
    openssl req -new -x509 -key $k.pem -subj "/CN=Tessa Token $k" -days 365 -outform DER -out $k.cer 2>/dev/null
done
write() { pkcs11-tool --module "$module" --login --pin 123456 --write-object "$1" --type "$2" --id "$3" --label "$4" >/dev/null 2>&1; }
for k in rsa:01 ec:02; do
    name=${k%:*} id=${k#*:}
    write $name.pem privkey $id "$name key"
    write $name.pub pubkey $id "$name key"
    write $name.cer cert $id "$name certificate"
done
