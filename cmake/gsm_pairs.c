/* Status 0 when this libgsm knows the form in which two GSM frames have 65 bytes. */
#include <gsm.h>

int main(void) {
    int on = 1;
    gsm const coder = gsm_create();
    return gsm_option(coder, GSM_OPT_WAV49, &on) == -1;
}
