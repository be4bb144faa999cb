#include "gateway/transport/Transports.h"

#include <stdexcept>

// Where the libraries for sending are missing; a configuration that asks for it has been refused before.
std::unique_ptr<ETransports> MakeTransports(const MailSettings* /*mail*/, const UploadSettings* /*upload*/,
                                            const Reporter& /*report*/) {
    throw std::runtime_error("this kvgateway is built without e-mail and uploads");
}
