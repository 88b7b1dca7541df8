#!/bin/sh
# Makes the certificates of the unit tests with the openssl program. README.md tells what each is for.
# Usage: make_unit_certs.sh <openssl program> <folder to make them in>
set -eu
openssl=$1
cd "$2"

cat > empty.cnf <<'CNF'
[req]
distinguished_name = names
[names]
CNF

"$openssl" genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out key.pem
"$openssl" genpkey -algorithm ED25519 -out ed25519.pem

# make <name> <subject> [further options of openssl req]
make() {
    name=$1 subject=$2
    shift 2
    "$openssl" req -x509 -new -config empty.cnf -key key.pem -days 3650 -utf8 -subj "$subject" "$@" \
        -outform DER -out "$name.der"
}

# usages <name> <keyUsage or -> <extendedKeyUsage or ->
usages() {
    name=$1 key_usage=$2 ext_key_usage=$3
    set --
    [ "$key_usage" = - ] || set -- "$@" -addext "keyUsage=$key_usage"
    [ "$ext_key_usage" = - ] || set -- "$@" -addext "extendedKeyUsage=$ext_key_usage"
    make "$name" "/CN=$name" "$@"
}

# Names
make issuer /CN=b
"$openssl" x509 -inform DER -in issuer.der -out issuer.pem
make plain /CN=a -CA issuer.pem -CAkey key.pem
make long_names "/C=DE/O=Müller, Söhne \\+ Co/OU='quoted'/CN=a\\/b"
make no_names /

# Every key usage with every extended key usage, for the filter
for usage in -:none digitalSignature:80 digitalSignature,keyEncipherment:a0 keyEncipherment:20; do
    for ext_usage in -:none clientAuth:client emailProtection:email emailProtection,clientAuth:email_client; do
        usages "ku_${usage#*:}_eku_${ext_usage#*:}" "${usage%:*}" "${ext_usage%:*}"
    done
done

# Key usages
usages all_key_usages digitalSignature,nonRepudiation,keyEncipherment,dataEncipherment,keyAgreement,keyCertSign,cRLSign,encipherOnly,decipherOnly -
usages only_decipher_only decipherOnly -
usages all_ext_key_usages - serverAuth,clientAuth,emailProtection,codeSigning,msSGC,OCSPSigning,timeStamping,DVCS,anyExtendedKeyUsage
usages unknown_ext_key_usage - 1.3.6.1.4.1.99999.1.2.3
usages critical_ext_key_usage - critical,clientAuth
usages long_ext_key_usage - "1.2$(printf '.1234567890%.0s' $(seq 100))"
usages huge_arc_ext_key_usage - "1.2.3.$(printf '1234567890%.0s' $(seq 150)),clientAuth"
usages empty_key_usage DER:030100 -
usages empty_ext_key_usage - DER:3000
usages broken_ext_key_usage digitalSignature DER:0500
usages broken_key_usage DER:0500 clientAuth

# The program refuses to write an extension twice, so a second one is made of another: inhibitAnyPolicy
# (2.5.29.54) becomes extKeyUsage (2.5.29.37). The signature does not fit any more; nobody looks at it.
make twice /CN=twice -addext keyUsage=digitalSignature -addext extendedKeyUsage=clientAuth \
    -addext 2.5.29.54=DER:300a06082b06010505070304
LC_ALL=C sed 's/\x06\x03\x55\x1d\x36/\x06\x03\x55\x1d\x25/' twice.der > doubled_ext_key_usage.der

# Sizes. Ed25519 signatures have one length, so a comment of the right length makes a certificate of an exact
# size.
# sized <name> <length of the comment>
sized() {
    {
        printf '[req]\ndistinguished_name = names\n[names]\n[ext]\nnsComment = '
        head -c "$2" /dev/zero | tr '\0' a
        echo
    } > sized.cnf
    "$openssl" req -x509 -new -config sized.cnf -extensions ext -key ed25519.pem -days 3650 -set_serial 1 \
        -subj /CN=sized -outform DER -out "$1.der"
}
limit=1048576
sized probe 1048000
other=$(($(wc -c < probe.der) - 1048000))
sized one_below_limit $((limit - 1 - other))
sized at_limit $((limit - other))
sized one_above_limit $((limit + 1 - other))
sized far_above_limit 1300000
