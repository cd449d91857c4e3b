#include "engine/bounces/noticewords.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <numeric>
#include <vector>

#include "utility/text.h"

namespace {

// As NormalizeReply() gives them, with a bar between them.

constexpr std::string_view FailureSubjects =
    "[bounce]|blocked message|bounce message|bounced mail|bounced message|cannot be delivered|cannot deliver|"
    "could not be delivered|could not deliver|couldn't be delivered|delivery error|delivery fail|"
    "delivery has failed|delivery incomplete|delivery notice|delivery notification|delivery problem|"
    "delivery report|delivery status|delivery unsuccessful|delivery warning|e-mail delivery|email could not be|"
    "email delivery|email not delivered|error sending your mail|failed mail|failed to deliver|failure delivery|"
    "failure notice|failure notification|mail blocked|mail bounced|mail could not be|mail delivery|mail error|"
    "mail failed|mail failure|mail not sent|mail returned|mail system bounce|mail system error|mailbox full|"
    "mailbox unavailable|message blocked|message bounced|message could not be|message delivery|message failure|"
    "message not sent|message rejected|message status|message undelivered|non-delivery|nondelivery|"
    "not delivered|permanent delivery|rejected mail|returned mail|returned message|returned to sender|"
    "returning to sender|system bounce|unable to deliver|undeliver|undelivered|unknown address|"
    "unknown recipient|unknown user|unsuccessful delivery|user unknown|warning--could not|"
    "warning: could not send|warning: message|wasn't delivered";

constexpr std::string_view FailureTexts =
    "been refused|been rejected|been returned|being returned|bounced|can not be delivered|can't be delivered|"
    "can't deliver|cannot be delivered|cannot be sent|cannot deliver|could not be delivered|"
    "could not be processed|could not be reached|could not be sent|could not deliver|couldn't be delivered|"
    "couldn't deliver|deliver mail to|deliver message to|deliver the message|deliver your e-mail|"
    "deliver your email|deliver your message|delivery error|delivery failed|delivery failure|"
    "delivery has been unsuccessful|delivery has failed|delivery problem|delivery to the following|"
    "delivery was unsuccessful|did not reach|did not receive this message|error message below|"
    "error sending your mail|error while attempting to deliver|failed address|failed delivery|"
    "failed permanently|failed recipient|failed to deliver|failure notice|following address failed|"
    "following addresses failed|following recipient failed|following recipients failed|had delivery errors|"
    "had permanent|has been blocked|has failed to deliver|have been rejected|incorrectly constructed|"
    "is not deliverable|is returned|message delivery failed|message was not accepted|no longer be delivered|"
    "non-delivery|nondelivery|not able to deliver|not accepted|not be delivered|not been delivered|"
    "not delivered|not delivered to|not reach|not successfully delivered|occurred while attempting to deliver|"
    "occurred while trying to deliver|permanent delivery|permanent error|permanent failure|"
    "permanent fatal error|problem delivering|returned by|returned mail|returned to sender|returned to you|"
    "returning message to sender|trouble delivering|unable to deliver|undeliverable|"
    "undelivered|unsent message|unsuccessfully|was blocked|was not delivered|was refused|was stopped|was rejected|"
    "wasn't able to deliver|wasn't delivered";

// Of subjects and of texts.
constexpr std::string_view LocalFailures =
    "unzustellbar|nicht zugestellt|nicht zustell|zustellung fehlgeschlagen|zustellung an|zustellung an folgende|"
    "bei der zustellung|bei der nachrichtenzustellung|fehler bei der|nicht ausgeliefert|zustellfehler|"
    "zustellproblem|konnte nicht versendet|keine "
    "zustellung|abgelehnt|zuruckgewiesen|zurueckgewiesen|rejete|rechazad|rejeitad|rifiutat|geweigerd|odrzucon|отклонен|"
    "拒否され|拒收|거부되|"
    "non remis|non distribu|echec de la remise|echec de remise|echec d'envoi|echec de la distribution|"
    "echec de la livraison|non delivre|n'a pas pu|n'ont pas pu|impossible de remettre|impossible de delivrer|"
    "impossible d'envoyer|pas ete remis|pas ete delivre|pas ete distribue|retour a l'expediteur|"
    "retourne a l'expediteur|pas pu etre|no entregad|no se pudo|no se puede entregar|no se ha podido|"
    "no ha podido ser|no pudo ser|no pudo entregarse|error de entrega|error en la entrega|fallo en la entrega|"
    "fallo de entrega|fallo al entregar|entrega fallida|correo devuelto|mensaje devuelto|ha sido devuelto|"
    "devolucion de correo|no fue entregado|no ha sido entregado|imposible entregar|nao entregue|"
    "nao e possivel entregar|nao foi possivel entregar|falha na entrega|falha de entrega|falha ao entregar|"
    "nao pode ser entregue|nao poder ser entregue|nao foi entregue|mensagem devolvida|email devolvido|"
    "e-mail devolvido|erro na entrega|mancata consegna|non recapitabile|non consegnat|errore di consegna|"
    "impossibile consegnare|impossibile recapitare|consegna fallita|recapito non riuscito|"
    "restituito al mittente|non e stato possibile|non e stata possibile|non e stato recapitato|"
    "non e stato consegnato|mancato recapito|onbestelbaar|niet bezorgd|niet afgeleverd|niet worden bezorgd|"
    "niet worden afgeleverd|bezorging mislukt|niet bestelbaar|niet bezorgen|is mislukt|bezorgen van het bericht|"
    "kan niet worden bezorgd|gick inte att leverera|kan inte levereras|kunde inte levereras|olevererbar|"
    "olevererat|kan ikke leveres|ikke leveret|kunne ikke leveres|ikke levert|uleverbar|ei voitu toimittaa|"
    "ei toimitettu|ei voida toimittaa|leveransfel|leveringsfejl|niedostarczaln|nie dostarczon|niedostarczon|"
    "nie mozna dostarczyc|nie zostala dostarczona|nie mogla zostac dostarczona|nie powiodlo sie|"
    "zwrot wiadomosci|zwrot poczty|blad dostarczania|nedorucitelne|nedorucen|nelze dorucit|"
    "nepodarilo se dorucit|nebyla dorucena|nie je mozne dorucit|kezbesithetetlen|nem kezbesitheto|nem sikerult|"
    "nelivrabil|nelivrat|nu a putut fi livrat|teslim edilemedi|teslim edilemeyen|iletilemedi|"
    "не доставлен|недоставлен|не удается доставить|"
    "не удалось доставить|невозможно доставить|"
    "не может быть доставлен|не было доставлен|возврат письма|"
    "возврат почты|возвращено отправителю|ошибка доставки|"
    "ошибка при доставке|сбой доставки|не может быть отправлен|"
    "не доставлено|не вдалося доставити|неможливо доставити|"
    "配信不能|配信できま|配信エラー|配信失敗|配信に失敗|配信されません|"
    "送信できません|送信エラー|送信に失敗|配送不能|配送できま|配送に失敗|"
    "配送エラー|配達できま|不達|届けられません|お届けできま|未配信|宛先不明|"
    "エラーメール|メールエラー|戻されました|返送|退信|退回|未送达|未送達|"
    "无法送达|無法送達|无法传递|無法傳遞|投递失败|投遞失敗|发送失败|發送失敗|"
    "传递失败|傳遞失敗|未传递|未傳遞|无法投递|無法投遞|傳送失敗|退件|未能送达|"
    "未能投递|寄送失败|传递到以下|배달되지 않|배달할 수 없|전송 실패|"
    "전송되지 못|전송하지 못|반송|전달되지 않|전달하지 못|발송 실패|배달 실패|"
    "배달하지 못|발송되지 못";

constexpr std::string_view Warnings =
    "being delayed|delay notification|delivery attempts will continue|delivery delayed|delivery is delayed|"
    "delivery of your message has been delayed|do not need to re-send|do not need to resend|"
    "don't need to resend|has been delayed|have not been reached yet|is a warning only|delivered yet|is delayed|"
    "message is delayed for|no action is required on your part|not been delivered yet|"
    "not need to send your message again|not yet been delivered|notification of a delay|"
    "only a temporary failure|still in the queue|temporary failure report|this is a warning message only|"
    "this is a warning only|warning only|this is only a warning|warning message only|will be notified if delivery "
    "fails|"
    "will be notified if the message can|you will be notified if the delivery|"
    "you'll be notified if the delivery|you'll be notified if the message";

constexpr std::string_view LocalWarnings =
    "bisher nicht zugestellt|weitere versuche|weitere zustellversuche|entregar aun|ainda nao pode|novas tentativas "
    "serao|nouvelles tentatives seront|kolejne proby|повторит попытку|повторим попытку|до сих пор не|versuchen es "
    "weiter|en attente|continuerons a essayer|verzogert sich|verzogerte zustellung|zustellung "
    "verzogert|verzogerung bei der zustellung|"
    "noch nicht zugestellt|weiterhin versucht|weiterhin versuchen|zustellversuche werden|nur eine warnung|"
    "verspatete zustellung|zustellung ist verzogert|remise retardee|remise est retardee|pas encore ete remis|"
    "pas encore ete delivre|continuer a essayer|continuera a essayer|distribution retardee|"
    "distribution differee|retard de livraison|avis de retard|entrega retrasada|se ha retrasado|se retraso|"
    "aun no se ha entregado|todavia no se ha entregado|no se ha entregado todavia|seguira intentando|"
    "seguira intentandose|retraso en la entrega|demora en la entrega|seguiran los intentos|entrega atrasada|"
    "entrega adiada|esta atrasada|ainda nao foi entregue|continuara tentando|continuara a tentar|"
    "continuaremos tentando|atraso na entrega|consegna ritardata|recapito ritardato|non e ancora stat|"
    "continuera a tentare|ritardo nella consegna|ritardo di consegna|in ritardo|is vertraagd|"
    "vertraagde bezorging|vertraging|nog niet bezorgd|nog niet afgeleverd|blijven proberen|blijft proberen|"
    "fordrojd|annu inte levererats|forsinket|forsinkelse|endnu ikke leveret|enna ikke levert|viivastynyt|"
    "viivastyy|opoznion|opoznienie|jeszcze nie zosta|zpozden|opozden|kesleltet|intarziat|gecikti|gecikme|"
    "задерж|отложен|еще не доставлен|еще не было доставлен|"
    "попытки доставки будут|продолжит попытки|отсрочен|"
    "затримк|遅延|遅れて|遅れています|まだ配信されて|まだ配送されて|"
    "再送を試み|再送信を試み|引き続き配信|配信を続け|配信を試み続け|"
    "再度配送を試み|延迟|延遲|尚未送达|尚未傳遞|尚未传递|尚未送達|继续尝试|"
    "繼續嘗試|仍在尝试|将重试|會繼續|지연|아직 배달되지|아직 전송되지|계속 시도|"
    "다시 시도합니다";

constexpr std::string_view Retries =
    "queued for|remains in the queue|remain in the queue|later delivery|will be sent later|se volvera a intentar|go on "
    "trying|keep on trying|more days|more hours|waiting in the queue|waits in our queue|will try for|attempts to "
    "deliver will continue|automatically retr|be tried again|continue to be attempted|"
    "continue to try|continue trying|could not send mail for past|could not send message for past|"
    "delivery incomplete|further attempts will|has not been delivered yet|is still in the queue|keep trying|"
    "keep trying until|next attempt|next retry|retry until|retrying delivery|still attempting|"
    "still being retried|still trying|temporary problem delivering|will attempt to deliver|"
    "will be attempted|will be re-tried|will be retried|will continue to try|will keep trying|will reattempt|"
    "will retry|will try again|will try to deliver|you do not need to resend";

constexpr std::string_view DelaySubjects =
    "temporary delivery|(delay)|delay in delivery|delay notice|delay notification|delayed|delayed delivery|delivery "
    "delay|"
    "delivery incomplete|mail delay|message delay|notification (delay|status notification: warning|"
    "temporarily undeliver|warning--could not send|warning: could not send|warning: message";

constexpr std::string_view Finals =
    "no se volvera a|being returned|could not be delivered to|deleted from queue|deleted from the queue|delivery "
    "failed|"
    "delivery to the following recipients failed|failed permanently|gave up|given up|giving up|"
    "i'm not going to try again|no further attempts|no longer be retried|not be retried|not continue trying|"
    "not keep trying|permanent error|permanent fatal error|removed from the queue|returned to sender|"
    "undeliverable|will be deleted from|will not be retried";

constexpr std::string_view Successes =
    "successful delivery notifications|successfully delivered|successfully relayed|was successfully|"
    "delivery successful|has been delivered to the following|have been delivered to the following|"
    "message delivered to|was delivered to the following|successful mail delivery|relayed to non-dsn|"
    "expect no further notifications|erfolgreich|den folgenden empfangern zugestellt|"
    "remis aux destinataires suivants|ha sido entregado|foi entregue|e stato recapitato|"
    "доставлено следующим|已送达|配信されました|配信済み";

constexpr std::string_view Vacations =
    "absence notification|annual leave|auto reply|auto response|auto-reply|automated reply|automatic reply|"
    "automatic response|autoreply|autoresponse|away from my|away from the office|away notice|away until|"
    "currently away|i am away|i have left|i'm away|left the company and|maternity leave|no longer work|off sick|"
    "on holiday|on leave|on sabbatical|out of office|out of the office|out-of-office|parental leave|sick leave|"
    "vacation";

constexpr std::string_view LocalVacations =
    "abwesen|automatische antwort|automatische ruckantwort|autoantwort|im urlaub|nicht im haus|nicht im buro|"
    "nicht im buero|nicht am arbeitsplatz|automatisch erstellte antwort|reponse automatique|absence|"
    "absent du bureau|en conges|en vacances|message d'absence|respuesta autom|fuera de la oficina|"
    "fuera de oficina|de vacaciones|estoy ausente|mensaje automatico|resposta autom|fora do escritorio|"
    "de ferias|estou ausente|risposta automatica|fuori ufficio|in ferie|sono assente|messaggio automatico|"
    "automatisch antwoord|automatische beantwoording|afwezig|met vakantie|op vakantie|niet op kantoor|"
    "automatiska svar|automatisk svar|autosvar|automatiskt svar|pa semester|franvar|fravaer|pa ferie|"
    "automaattinen vastaus|lomalla|poissa toimistosta|autoodpowied|automatyczna odpowiedz|"
    "odpowiedz automatyczna|na urlopie|nieobecn|poza biurem|automaticka odpoved|mimo kancelar|na dovolene|"
    "nepritomn|automatikus valasz|raspuns automat|otomatik yanit|otomatik cevap|izindeyim|автоответ|"
    "автоматический ответ|автоматична відповідь|в отпуске|"
    "отсутств|自動返信|自動応答|自動回覆|自動答覆|不在通知|不在のお知らせ|"
    "不在にして|不在です|不在中|休暇|自动回复|自动答复|休假|不在办公室|度假|"
    "자동 회신|자동회신|자동 응답|자동응답|부재 중|부재중|휴가";

constexpr std::string_view Challenges =
    "allowed senders|approved sender|approved senders|awaiting verification|captcha|challenge|"
    "click the link to verify|confirm that you|confirm your email|confirm your message|human verification|"
    "not on my list|one-time|prove that you|prove you are|real live human|requires that you verify|"
    "requires verification|sender verification|spamblocker|suspect e-mail|verify that you|verify your|whitelist";

// The words by their first two bytes, so that a text is gone through once.
class CWordList {
public:
    explicit CWordList(std::initializer_list<std::string_view> tables) {
        for (const std::string_view table : tables)
            for (const std::string_view word : Split(table, '|'))
                m_words.push_back(word);
        std::stable_sort(m_words.begin(), m_words.end(),
                         [](std::string_view one, std::string_view other) { return KeyOf(one) < KeyOf(other); });
        for (const std::string_view word : m_words)
            ++m_ends[KeyOf(word)];
        std::partial_sum(m_ends.begin(), m_ends.end(), m_ends.begin());
    }

    bool StandIn(std::string_view text) const noexcept {
        for (; text.size() >= 2; text.remove_prefix(1)) {
            const std::size_t key = KeyOf(text);
            for (std::size_t i = key == 0 ? 0 : m_ends[key - 1]; i < m_ends[key]; ++i)
                if (text.starts_with(m_words[i])) return true;
        }
        return false;
    }

private:
    static constexpr std::size_t Keys = 1024;

    static std::size_t KeyOf(std::string_view text) noexcept {
        return (static_cast<unsigned char>(text[0]) * 37U + static_cast<unsigned char>(text[1])) % Keys;
    }

    std::vector<std::string_view> m_words;
    std::array<std::uint16_t, Keys> m_ends{};  // of the words with a key
};

const CWordList& ListOf(NoticeWords words) {
    static const CWordList FailureSubjectList{FailureSubjects, LocalFailures};
    static const CWordList FailureTextList{FailureTexts, LocalFailures};
    static const CWordList WarningList{Warnings, LocalWarnings};
    static const CWordList RetryList{Retries};
    static const CWordList DelaySubjectList{DelaySubjects, LocalWarnings};
    static const CWordList FinalList{Finals};
    static const CWordList SuccessList{Successes};
    static const CWordList VacationList{Vacations, LocalVacations};
    static const CWordList ChallengeList{Challenges};
    switch (words) {
        case NoticeWords::FailureSubject:
            return FailureSubjectList;
        case NoticeWords::FailureText:
            return FailureTextList;
        case NoticeWords::Warning:
            return WarningList;
        case NoticeWords::Retry:
            return RetryList;
        case NoticeWords::DelaySubject:
            return DelaySubjectList;
        case NoticeWords::Final:
            return FinalList;
        case NoticeWords::Success:
            return SuccessList;
        case NoticeWords::Vacation:
            return VacationList;
        case NoticeWords::Challenge:
            break;
    }
    return ChallengeList;
}

}  // namespace

bool HasWords(std::string_view normalized, NoticeWords words) {
    return ListOf(words).StandIn(normalized);
}
